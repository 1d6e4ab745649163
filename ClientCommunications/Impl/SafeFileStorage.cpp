#include "ClientCommunications/Impl/SafeFileStorage.h"

#include <exception>

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

/// The order is what recovery rests on. The old copy goes before the rename, since a rename may not overwrite
/// on every platform; the gap that this opens is the one that `Load` closes.
void SafeFileStorage::Save(const std::string& data) {
    files.Get(Staging)->Save(data);
    files.Delete(Committed);
    files.Rename(Staging, Committed);
}

}  // namespace Ombry::ClientCommunications
