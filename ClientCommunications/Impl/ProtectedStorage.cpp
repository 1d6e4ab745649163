#include "ClientCommunications/Impl/ProtectedStorage.h"

namespace Ombry::ClientCommunications {

std::string ProtectedStorage::Load() {
    std::string data = storage->Load();
    protection->Unprotect(data);
    return data;
}

void ProtectedStorage::Save(const std::string& data) {
    std::string copy = data;
    protection->Protect(copy);
    storage->Save(copy);
}

std::unique_ptr<IStorage> NamedProtectedStorage::Get(const std::string& name) {
    return std::make_unique<ProtectedStorage>(storage->Get(name), protection);
}

}  // namespace Ombry::ClientCommunications
