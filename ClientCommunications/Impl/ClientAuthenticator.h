#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IClientCredentials.h"

namespace Ombry::ClientCommunications {

/// Puts id and secret on a request as a Basic header (RFC 7617).
class ClientAuthenticator : public IAuthenticator {
public:
    explicit ClientAuthenticator(std::shared_ptr<IClientCredentials> credentials)
        : credentials(std::move(credentials)) {}

    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                           Cancellation::Token token) override;

private:
    const std::shared_ptr<IClientCredentials> credentials;
};

}  // namespace Ombry::ClientCommunications
