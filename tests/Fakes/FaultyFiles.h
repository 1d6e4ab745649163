#pragma once

#include "tests/Fakes/FileOperations.h"

#include <utility>

namespace Ombry::Tests {

/// Forwards everything to other files, those of the disk unless told otherwise, records it, and fails what a
/// test chose.
class FaultyFiles : public Platform::IFiles, public FileOperations {
public:
    explicit FaultyFiles(Platform::IFiles& inner = Platform::Production<Platform::IFiles>()) : inner(inner) {}

    Platform::ValueOr<std::string> Read(const std::string& path) override {
        if (const auto result = Record({"Read", path, {}, {}}); !result) return result;
        return inner.Read(path);
    }

    Platform::ValueOr<Platform::FileState> State(const std::string& path) override {
        if (const auto result = Record({"State", path, {}, {}}); !result) return result;
        return inner.State(path);
    }

    Platform::ValueOr<std::unique_ptr<Platform::IFileReplacement>> BeginReplace(
        const std::string& path, std::uint64_t size, Platform::Durability durability) override {
        if (const auto result = Record({"BeginReplace", path, {}, durability}); !result) return result;
        auto begun = inner.BeginReplace(path, size, durability);
        if (!begun) return begun;
        return std::unique_ptr<Platform::IFileReplacement>(
            std::make_unique<Replacement>(*this, std::move(*begun), path, durability));
    }

    Platform::Result Remove(const std::string& path, Platform::Durability durability) override {
        const auto result = Record({"Remove", path, {}, durability});
        return result ? inner.Remove(path, durability) : result;
    }

    Platform::Result Rename(const std::string& from, const std::string& to) override {
        const auto result = Record({"Rename", from, to, {}});
        return result ? inner.Rename(from, to) : result;
    }

    Platform::ValueOr<std::vector<std::string>> List(const std::string& directory) override {
        if (const auto result = Record({"List", directory, {}, {}}); !result) return result;
        return inner.List(directory);
    }

    Platform::Result CreateDirectories(const std::string& directory,
                                       Platform::Durability durability) override {
        const auto result = Record({"CreateDirectories", directory, {}, durability});
        return result ? inner.CreateDirectories(directory, durability) : result;
    }

private:
    class Replacement : public Platform::IFileReplacement {
    public:
        Replacement(FaultyFiles& files, std::unique_ptr<Platform::IFileReplacement> inner, std::string path,
                    Platform::Durability durability)
            : files(files), inner(std::move(inner)), path(std::move(path)), durability(durability) {}

        Platform::Result Complete(std::string_view data) override {
            const auto result = files.Record({"Complete", path, {}, durability});
            return result ? inner->Complete(data) : result;
        }
        bool IsRefused() const override { return inner->IsRefused(); }

    private:
        FaultyFiles& files;
        const std::unique_ptr<Platform::IFileReplacement> inner;
        const std::string path;
        const Platform::Durability durability;
    };

    Platform::IFiles& inner;
};

}  // namespace Ombry::Tests
