#include "ClientCommunications/Impl/SafeFileStorage.h"

#include <exception>
#include <string_view>

namespace Ombry::ClientCommunications {
namespace {

constexpr const char* Committed = "-p";
constexpr const char* Staging = "-s";

}  // namespace

SafeFileStorage::SafeFileStorage(const std::string& path, bool failIfMissing)
    : failIfMissing(failIfMissing), files(path, "", true, nullptr, Platform::Durability::Unsynced) {}

std::optional<std::string> SafeFileStorage::LoadCommitted() {
    try {
        return files.Get(Committed)->Load();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string SafeFileStorage::Load() {
    if (std::optional<std::string> committed = LoadCommitted()) return std::move(*committed);
    try {
        std::string staged = files.Get(Staging)->Load();
        files.Delete(Committed);
        files.Rename(Staging, Committed);
        return staged;
    } catch (const std::exception&) {
        if (failIfMissing) throw;
        return std::string();
    }
}

// The order is what recovery rests on. The old copy goes before the rename, since a rename may not overwrite
// on every platform; the gap that this opens is the one that `Load` closes.
void SafeFileStorage::Save(const std::string& data) {
    files.Get(Staging)->Save(data);
    files.Delete(Committed);
    files.Rename(Staging, Committed);
}

void SafeFileStorage::Remove() {
    files.Delete(Committed);
    files.Delete(Staging);
}

std::string SafeFileStorage::CommittedPathOf(std::string path) {
    path += Committed;
    return path;
}

std::string SafeFileStorage::StagedPathOf(const std::string& path) {
    return path + Staging;
}

std::string SafeFileStorage::BlobNameOf(const std::string& fileName) {
    const std::string_view name = fileName;
    for (const std::string_view suffix : {Committed, Staging}) {
        if (name.ends_with(suffix)) return std::string(name.substr(0, name.size() - suffix.size()));
    }
    return fileName;
}

}  // namespace Ombry::ClientCommunications
