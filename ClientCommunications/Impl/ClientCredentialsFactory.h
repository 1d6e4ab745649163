#pragma once

#include "ClientCommunications/IClientCredentialsFactory.h"
#include "ClientCommunications/IDataProtection.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Makes credentials that share one protection.
class ClientCredentialsFactory : public IClientCredentialsFactory {
public:
    explicit ClientCredentialsFactory(std::shared_ptr<IDataProtection> protection)
        : protection(std::move(protection)) {}

    std::shared_ptr<IClientCredentials> Create(const std::string& name, const std::string& clientId,
                                               const std::string& clientSecret) override;

private:
    const std::shared_ptr<IDataProtection> protection;
};

}  // namespace Ombry::ClientCommunications
