#pragma once

#include "LibraryLogger/ILogger.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Tests {

/// The path by which the compiler was given a source: what a log line must bear. `path` begins at the root of
/// the tree.
inline std::string SourcePath(const std::string& path) {
    constexpr std::string_view here = __FILE__;
    constexpr std::string_view inTheTree = "tests/Fakes/RecordingLogger.h";
    static_assert(here.ends_with(inTheTree));
    return std::string(here.substr(0, here.size() - inTheTree.size())) + path;
}

/// Keeps what is logged, from any thread. Levels below `lowest` are off.
class RecordingLogger : public LibraryLogger::ILogger {
public:
    struct Entry {
        int level;
        std::string message;
        std::string function;
        std::string file;
        int line;
    };

    explicit RecordingLogger(int lowest = 0) : lowest(lowest) {}

    bool IsEnabled(int level) override {
        std::lock_guard guard(mutex);
        ++enabledCalls;
        return level >= lowest;
    }

    void Log(const char* file, int line, const char* function, int level,
             const std::string& message) override {
        std::lock_guard guard(mutex);
        entries.push_back({level, message, function, file, line});
    }

    std::vector<Entry> Entries() const {
        std::lock_guard guard(mutex);
        return entries;
    }

    /// Messages of one level, or of all for -1.
    std::vector<std::string> Messages(int level = -1) const {
        std::lock_guard guard(mutex);
        std::vector<std::string> messages;
        for (const Entry& entry : entries) {
            if (level == -1 || entry.level == level) messages.push_back(entry.message);
        }
        return messages;
    }

    bool Has(int level, const std::string& message) const {
        std::lock_guard guard(mutex);
        return std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) {
            return entry.level == level && entry.message == message;
        });
    }

    /// The function that the first line of this message bears.
    std::string FunctionOf(const std::string& message) const {
        std::lock_guard guard(mutex);
        const auto found = std::find_if(entries.begin(), entries.end(),
                                        [&](const Entry& entry) { return entry.message == message; });
        return found == entries.end() ? "(no such line)" : found->function;
    }

    int EnabledCalls() const {
        std::lock_guard guard(mutex);
        return enabledCalls;
    }

    void Clear() {
        std::lock_guard guard(mutex);
        entries.clear();
    }

private:
    const int lowest;
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::vector<Entry> entries;
    int enabledCalls = 0;
};

}  // namespace Ombry::Tests
