#pragma once

#include "ClientCommunications/INamedStorage.h"
#include "ClientCommunications/IPostSaveHook.h"
#include "ClientCommunications/IStorage.h"
#include "Platform/IFiles.h"

namespace Ombry::ClientCommunications {

/// Files addressed by a name: prefix, name and suffix make the path, with no separator added. Has no lock.
class NamedFileStorage : public INamedStorage {
public:
    NamedFileStorage(std::string prefix, std::string suffix, bool failIfMissing,
                     std::shared_ptr<IPostSaveHook> postSaveHook = nullptr,
                     Platform::Durability durability = Platform::Durability::Synced);

    std::unique_ptr<IStorage> Get(const std::string& name) override;
    /// Results of removing and renaming are ignored.
    void Delete(const std::string& name) override;
    void Rename(const std::string& from, const std::string& to) override;

private:
    std::string PathOf(const std::string& name) const { return prefix + name + suffix; }

    const std::string prefix;
    const std::string suffix;
    const bool failIfMissing;
    const std::shared_ptr<IPostSaveHook> postSaveHook;
    const Platform::Durability durability;
};

}  // namespace Ombry::ClientCommunications
