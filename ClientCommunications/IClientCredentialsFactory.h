#pragma once

#include "ClientCommunications/IClientCredentials.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Makes credentials. Seam inside: no installed function takes or gives it.
class IClientCredentialsFactory {
public:
    virtual std::shared_ptr<IClientCredentials> Create(const std::string& name, const std::string& clientId,
                                                       const std::string& clientSecret) = 0;
    virtual ~IClientCredentialsFactory() = default;
};

}  // namespace Ombry::ClientCommunications
