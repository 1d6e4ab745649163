#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"

#include <algorithm>

#include "ClientCommunications/Impl/KeyHash.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"

namespace Ombry::ClientCommunications {

std::string DirectoryKeyValueStorage::EntryNameOf(const std::string& key) {
    std::string name = getSHA256HashBase64Encoded(key);
    std::replace(name.begin(), name.end(), '/', '!');  // makes it a legal file name
    return name;
}

std::string DirectoryKeyValueStorage::GetByKey(const std::string& key) {
    return GetEntry(EntryNameOf(key));
}

std::string DirectoryKeyValueStorage::GetEntry(const std::string& entryName) {
    SafeFileStorage storage(PathOf(entryName), false);
    {
        const KeyReadLock lock(&locks, entryName);
        if (std::optional<std::string> committed = storage.LoadCommitted()) return std::move(*committed);
    }
    // The committed copy is missing: recovery may rename files, which is a writer's work.
    const KeyWriteLock lock(&locks, entryName);
    return storage.Load();
}

void DirectoryKeyValueStorage::SetByKey(const std::string& key, const std::string& value) {
    const std::string entryName = EntryNameOf(key);
    const KeyWriteLock lock(&locks, entryName);
    SafeFileStorage(PathOf(entryName), false).Save(value);
}

void DirectoryKeyValueStorage::RemoveByKey(const std::string& key) {
    RemoveEntry(EntryNameOf(key));
}

void DirectoryKeyValueStorage::RemoveEntry(const std::string& entryName) {
    const KeyWriteLock lock(&locks, entryName);
    static_cast<void>(Platform::Files().Remove(PathOf(entryName) + "-p"));
    static_cast<void>(Platform::Files().Remove(PathOf(entryName) + "-s"));
}

std::set<std::string> DirectoryKeyValueStorage::getEntriesNames() {
    std::set<std::string> names;
    const auto files = Platform::Files().List(directory);
    if (!files) return names;
    for (const std::string& file : *files) {
        if (file.starts_with('.')) continue;  // a save that is under way, or that a crash cut off
        const bool hasSuffix = file.ends_with("-p") || file.ends_with("-s");
        names.insert(hasSuffix ? file.substr(0, file.size() - 2) : file);
    }
    return names;
}

}  // namespace Ombry::ClientCommunications
