#pragma once

#include "Platform/IClock.h"
#include "Platform/IFiles.h"

#include <map>
#include <unordered_map>

namespace Ombry::Fleet {

/// The disks of all machines of a fleet, in memory: a folder is there when it is asked for. For one thread.
class MemoryDisk : public Platform::IFiles {
public:
    Platform::ValueOr<std::string> Read(const std::string& path) override;
    Platform::ValueOr<Platform::FileState> State(const std::string& path) override;
    Platform::ValueOr<std::unique_ptr<Platform::IFileReplacement>> BeginReplace(
        const std::string& path, std::uint64_t size, Platform::Durability durability) override;
    Platform::Result Remove(const std::string& path, Platform::Durability durability) override;
    Platform::Result Rename(const std::string& from, const std::string& to) override;
    Platform::ValueOr<std::vector<std::string>> List(const std::string& directory) override;
    Platform::Result CreateDirectories(const std::string& directory,
                                       Platform::Durability durability) override;

    void Put(const std::string& path, std::string content);

private:
    struct File {
        std::string content;
        std::uint64_t number = 0;
        TimePoint changed{};
    };
    class Replacement;

    File* Find(const std::string& path);

    std::unordered_map<std::string, std::map<std::string, File>> folders;
    std::uint64_t lastNumber = 0;
};

}  // namespace Ombry::Fleet
