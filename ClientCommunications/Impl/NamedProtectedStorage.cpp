#include "ClientCommunications/Impl/NamedProtectedStorage.h"

#include "ClientCommunications/Impl/ProtectedStorage.h"

namespace Ombry::ClientCommunications {

std::unique_ptr<IStorage> NamedProtectedStorage::Get(const std::string& name) {
    return std::make_unique<ProtectedStorage>(storage->Get(name), protection);
}

}  // namespace Ombry::ClientCommunications
