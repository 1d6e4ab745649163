#pragma once

#include "Platform/IFiles.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// The process ends here: thrown by what judges an operation. Not an exception of the standard library, so
/// that no code under test takes it for a failure of its own.
struct Crash {};

/// One call of `IFiles` or of the replacement that it made.
struct FileOperation {
    std::string name;  ///< the member function's name, "Complete" for that of a replacement
    std::string path;
    std::string target;  ///< of "Rename"
    std::optional<Platform::Durability> durability;

    /// "BeginReplace a/b Synced", "Complete a/b Unsynced", "Rename a/b a/c", "Read a/b" and so on.
    std::string Text() const {
        std::string text = name + " " + path;
        if (!target.empty()) text += " " + target;
        if (durability) text += *durability == Platform::Durability::Synced ? " Synced" : " Unsynced";
        return text;
    }
};

/// Records every operation in order, failures included, and fails those that a test chose. A failed operation
/// has no effect. Any thread may call it.
class FileOperations {
public:
    /// What a test wants to fail: a number to fail with, or nothing to let the operation run.
    using Judge = std::function<std::optional<int>(const FileOperation&)>;

    /// Fails the n-th operation, counted from 1 over all that are recorded.
    void FailNth(std::size_t n, int error) {
        std::lock_guard guard(mutex);
        failAt = n;
        failError = error;
    }

    /// Fails every operation of that name, or only those on that path.
    void FailEvery(const std::string& name, int error, const std::string& path = {}) {
        Decide([=](const FileOperation& operation) -> std::optional<int> {
            if (operation.name != name || (!path.empty() && operation.path != path)) return std::nullopt;
            return error;
        });
    }

    /// Asks `judge` about each operation, on the thread that calls it and before it has any effect.
    void Decide(Judge decides) {
        std::lock_guard guard(mutex);
        judge = std::move(decides);
    }

    std::vector<FileOperation> Operations() const {
        std::lock_guard guard(mutex);
        return operations;
    }

    /// The texts of all operations, to hold a whole order of steps.
    std::vector<std::string> Texts() const {
        std::lock_guard guard(mutex);
        std::vector<std::string> texts;
        for (const FileOperation& operation : operations)
            texts.push_back(operation.Text());
        return texts;
    }

    void ClearOperations() {
        std::lock_guard guard(mutex);
        operations.clear();
    }

protected:
    FileOperations() = default;
    ~FileOperations() = default;

    Platform::Result Record(FileOperation operation) {
        Judge decides;
        {
            std::lock_guard guard(mutex);
            operations.push_back(operation);
            if (operations.size() == failAt) return Platform::Result::Failure(failError);
            decides = judge;
        }
        const auto error = decides ? decides(operation) : std::nullopt;
        return error ? Platform::Result::Failure(*error) : Platform::Result::Success();
    }

private:
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::vector<FileOperation> operations;
    std::size_t failAt = 0;
    int failError = 0;
    Judge judge;
};

}  // namespace Ombry::Tests
