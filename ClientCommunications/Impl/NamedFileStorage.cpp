#include "ClientCommunications/Impl/NamedFileStorage.h"

#include "ClientCommunications/Impl/FileStorage.h"

namespace Ombry::ClientCommunications {

NamedFileStorage::NamedFileStorage(std::string prefix, std::string suffix, bool failIfMissing,
                                   std::shared_ptr<IPostSaveHook> postSaveHook,
                                   Platform::Durability durability)
    : prefix(std::move(prefix)),
      suffix(std::move(suffix)),
      failIfMissing(failIfMissing),
      postSaveHook(std::move(postSaveHook)),
      durability(durability) {}

std::unique_ptr<IStorage> NamedFileStorage::Get(const std::string& name) {
    return std::make_unique<FileStorage>(PathOf(name), failIfMissing, postSaveHook, durability);
}

void NamedFileStorage::Delete(const std::string& name) {
    static_cast<void>(Platform::Files().Remove(PathOf(name), durability));
}

void NamedFileStorage::Rename(const std::string& from, const std::string& to) {
    static_cast<void>(Platform::Files().Rename(PathOf(from), PathOf(to)));
}

}  // namespace Ombry::ClientCommunications
