#pragma once

#include "ClientCommunications/IOAuth2Client.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceRequestFactory.h"
#include "LibraryLogger/ILogger.h"

namespace Ombry::ClientCommunications {

/// Gets a bearer token for a service by a client-credentials grant (RFC 6749, section 4.4). The gateway finds
/// the authorization service, authenticates the call and retries. Immutable; several threads may ask at
/// once.
class OAuth2ServiceGatewayClient : public IOAuth2Client {
public:
    /// `path`: request path of the token endpoint. `logger` may be null.
    OAuth2ServiceGatewayClient(std::shared_ptr<IServiceGateway> gateway,
                               std::shared_ptr<IServiceRequestFactory> requestFactory, std::string path,
                               std::shared_ptr<LibraryLogger::ILogger> logger);

    /// Passes the gateway's exceptions on; `std::runtime_error` for a status of 300 or above and for a body
    /// that is no token. `metaData` may be null.
    OAuth2Token GetToken(const std::string& serviceName, std::shared_ptr<IRootRequestMetaData> metaData,
                         Cancellation::Token token) override;

private:
    [[noreturn]] void ThrowFailure(const std::string& serviceName, int status, const std::string& body) const;

    const std::shared_ptr<IServiceGateway> gateway;
    const std::shared_ptr<IServiceRequestFactory> requestFactory;
    const std::string path;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
};

}  // namespace Ombry::ClientCommunications
