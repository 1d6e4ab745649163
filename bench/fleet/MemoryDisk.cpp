#include "bench/fleet/MemoryDisk.h"

#include <cerrno>

namespace Ombry::Fleet {
namespace {

using Platform::Result;

std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

std::string NameIn(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

class MemoryDisk::Replacement : public Platform::IFileReplacement {
public:
    Replacement(MemoryDisk& disk, std::string path) : disk(disk), path(std::move(path)) {}

    Result Complete(std::string_view data) override {
        disk.Put(path, std::string(data));
        return Result::Success();
    }

private:
    MemoryDisk& disk;
    const std::string path;
};

MemoryDisk::File* MemoryDisk::Find(const std::string& path) {
    const auto folder = folders.find(FolderOf(path));
    if (folder == folders.end()) return nullptr;
    const auto file = folder->second.find(NameIn(path));
    return file == folder->second.end() ? nullptr : &file->second;
}

Platform::ValueOr<std::string> MemoryDisk::Read(const std::string& path) {
    const File* const file = Find(path);
    if (!file) return Result::Failure(ENOENT);
    return file->content;
}

Platform::ValueOr<Platform::FileState> MemoryDisk::State(const std::string& path) {
    const File* const file = Find(path);
    if (!file) return Result::Failure(ENOENT);
    return Platform::FileState{
        .device = 1, .file = file->number, .size = file->content.size(), .changed = file->changed};
}

Platform::ValueOr<std::unique_ptr<Platform::IFileReplacement>> MemoryDisk::BeginReplace(
    const std::string& path, std::uint64_t, Platform::Durability) {
    return std::unique_ptr<Platform::IFileReplacement>(std::make_unique<Replacement>(*this, path));
}

Result MemoryDisk::Remove(const std::string& path, Platform::Durability) {
    const auto folder = folders.find(FolderOf(path));
    const bool removed = folder != folders.end() && folder->second.erase(NameIn(path)) != 0;
    return removed ? Result::Success() : Result::Failure(ENOENT);
}

Result MemoryDisk::Rename(const std::string& from, const std::string& to) {
    File* const file = Find(from);
    if (!file) return Result::Failure(ENOENT);
    File moved = std::move(*file);
    folders[FolderOf(from)].erase(NameIn(from));
    moved.changed = Platform::Clock().Now();
    folders[FolderOf(to)][NameIn(to)] = std::move(moved);
    return Result::Success();
}

Platform::ValueOr<std::vector<std::string>> MemoryDisk::List(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : folders[directory])
        names.push_back(entry.first);
    return names;
}

Result MemoryDisk::CreateDirectories(const std::string& directory, Platform::Durability) {
    folders.try_emplace(directory);
    return Result::Success();
}

void MemoryDisk::Put(const std::string& path, std::string content) {
    folders[FolderOf(path)][NameIn(path)] = {std::move(content), ++lastNumber, Platform::Clock().Now()};
}

}  // namespace Ombry::Fleet
