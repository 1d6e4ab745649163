#pragma once

#include "ClientCommunications/IClientCredentials.h"
#include "ClientCommunications/IClientCredentialsFactory.h"
#include "ClientCommunications/IClientCredentialsStore.h"
#include "ClientCommunications/IDataProtection.h"
#include "ClientCommunications/INamedStorage.h"
#include "ClientCommunications/IPostSaveHook.h"
#include "ClientCommunications/IStorage.h"

namespace Ombry::ClientCommunications {

/// Keeps id and secret of a client in one file for each name, with a layer of protection over each value and
/// another over the file. A file that cannot be read is never deleted here.
class ClientCredentialsStore : public IClientCredentialsStore {
public:
    ClientCredentialsStore(std::shared_ptr<IDataProtection> fieldProtection,
                           std::shared_ptr<IClientCredentialsFactory> factory,
                           std::shared_ptr<INamedStorage> storage);

    void Save(std::shared_ptr<IClientCredentials> credentials) override;
    std::shared_ptr<IClientCredentials> Load(const std::string& name) override;
    void Delete(const std::string& name) override { storage->Delete(name); }

private:
    const std::shared_ptr<IDataProtection> fieldProtection;
    const std::shared_ptr<IClientCredentialsFactory> factory;
    const std::shared_ptr<INamedStorage> storage;
};

/// The store under `directory`. `failIfMissing`: whether loading an unknown name throws instead of giving
/// null. `postSaveHook` may be null.
std::shared_ptr<IClientCredentialsStore> CreateClientCredentialsStore(
    const std::string& directory, bool failIfMissing, std::shared_ptr<IPostSaveHook> postSaveHook);

/// The credentials of `name`, which a command cannot go on without: an empty file, which gives none, is
/// `std::runtime_error` too.
std::shared_ptr<IClientCredentials> LoadExisting(IClientCredentialsStore& store, const std::string& name);

}  // namespace Ombry::ClientCommunications
