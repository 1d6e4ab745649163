#pragma once

#include "ClientCommunications/IClientCredentials.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Keeps credentials on the machine. Used by one command at a time. Seam inside: no installed function takes
/// or gives it.
class IClientCredentialsStore {
public:
    virtual void Save(std::shared_ptr<IClientCredentials> credentials) = 0;
    /// Null if there is nothing stored and the store does not count that as a failure.
    virtual std::shared_ptr<IClientCredentials> Load(const std::string& name) = 0;
    virtual void Delete(const std::string& name) = 0;
    virtual ~IClientCredentialsStore() = default;
};

}  // namespace Ombry::ClientCommunications
