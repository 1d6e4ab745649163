#include "ClientCommunications/Impl/ProtectedStorage.h"

#include "ClientCommunications/Impl/NamedProtectedStorage.h"

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

}  // namespace Ombry::ClientCommunications
