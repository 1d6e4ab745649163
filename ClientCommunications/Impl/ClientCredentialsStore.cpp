#include "ClientCommunications/Impl/ClientCredentialsStore.h"

#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsFactory.h"
#include "ClientCommunications/Impl/DataProtectionBase64.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/NamedFileStorage.h"
#include "ClientCommunications/Impl/NamedProtectedStorage.h"
#include "ClientCommunications/Impl/ProtectedStorage.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"
#include "ObjectMapping/Serialization.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

// The content of a credentials file: both values protected, as Base64 text.
class ClientCredentialsDto : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override {
        mapper.Field("ClientIdBytes", clientId, nullptr);
        mapper.Field("ClientSecretBytes", clientSecret, nullptr);
    }
    void Reset() override { *this = ClientCredentialsDto(); }

    std::string clientId;
    std::string clientSecret;
};

// Entropies are made at run time, so that they do not stand in the program as text. Whoever changes one makes
// every credentials file unreadable.
template <std::size_t Size>
std::string MakeEntropy(unsigned seed) {
    std::string entropy;
    for (std::size_t i = 0; i < Size; ++i) {
        seed = seed * 1103515245U + 12345U;
        entropy += static_cast<char>(static_cast<unsigned char>(seed >> 16 & 0xff));
    }
    return entropy;
}

std::string ValueEntropy() {
    return MakeEntropy<12>(0x51C3A7E9U);
}

std::string FileEntropy() {
    return MakeEntropy<11>(0x2F90B64DU);
}

}  // namespace

ClientCredentialsStore::ClientCredentialsStore(std::shared_ptr<IDataProtection> fieldProtection,
                                               std::shared_ptr<IClientCredentialsFactory> factory,
                                               std::shared_ptr<INamedStorage> storage)
    : fieldProtection(std::move(fieldProtection)), factory(std::move(factory)), storage(std::move(storage)) {}

void ClientCredentialsStore::Save(std::shared_ptr<IClientCredentials> credentials) {
    ClientCredentialsDto dto;
    std::string id = credentials->GetClientId();
    const ScopedWipe wipeId(id);
    fieldProtection->Protect(id);
    dto.clientId = std::move(id);
    std::string secret = credentials->GetClientSecret();
    const ScopedWipe wipeSecret(secret);
    fieldProtection->Protect(secret);
    dto.clientSecret = std::move(secret);
    const std::string text = ObjectMapping::SerializeObject(dto, nullptr);
    storage->Get(credentials->GetName())->Save(text);
}

std::shared_ptr<IClientCredentials> ClientCredentialsStore::Load(const std::string& name) {
    const std::string text = storage->Get(name)->Load();
    if (text.empty()) return nullptr;
    ClientCredentialsDto dto;
    ObjectMapping::DeserializeObject(dto, text, nullptr, true);
    std::string id = dto.clientId;
    const ScopedWipe wipeId(id);
    std::string secret = dto.clientSecret;
    const ScopedWipe wipeSecret(secret);
    fieldProtection->Unprotect(id);
    fieldProtection->Unprotect(secret);
    std::shared_ptr<IClientCredentials> credentials = factory->Create(name, id, secret);
    // Enciphering is how the plain copies are scrubbed: nothing plain is left behind in freed memory.
    fieldProtection->Protect(id);
    fieldProtection->Protect(secret);
    return credentials;
}

std::shared_ptr<IClientCredentialsStore> CreateClientCredentialsStore(
    const std::string& directory, bool failIfMissing, std::shared_ptr<IPostSaveHook> postSaveHook) {
    auto files =
        std::make_shared<NamedFileStorage>(directory + MachineFiles::Components, MachineFiles::Credentials,
                                           failIfMissing, std::move(postSaveHook));
    auto fieldProtection = std::make_shared<DataProtectionBase64>(
        std::make_shared<WindowsPersistableDataProtection>(ValueEntropy(), false));
    auto factory =
        std::make_shared<ClientCredentialsFactory>(std::make_shared<WindowsInMemoryDataProtection>(0));
    auto fileProtection = std::make_shared<WindowsPersistableDataProtection>(FileEntropy(), false);
    auto storage = std::make_shared<NamedProtectedStorage>(std::move(files), std::move(fileProtection));
    return std::make_shared<ClientCredentialsStore>(std::move(fieldProtection), std::move(factory),
                                                    std::move(storage));
}

std::shared_ptr<IClientCredentials> LoadExisting(IClientCredentialsStore& store, const std::string& name) {
    std::shared_ptr<IClientCredentials> credentials = store.Load(name);
    if (!credentials) throw std::runtime_error("The credentials file of '" + name + "' is empty.");
    return credentials;
}

}  // namespace Ombry::ClientCommunications
