#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceRequestFactory.h"
#include "LibraryLogger/ILogger.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Puts a bearer token on each request that it asks for anew each time; nothing is kept between calls.
class NoncachingOAuth2Authenticator : public IAuthenticator {
public:
    NoncachingOAuth2Authenticator(std::shared_ptr<LibraryLogger::ILogger> logger,
                                  std::shared_ptr<IServiceGateway> tokenGateway,
                                  std::shared_ptr<IServiceRequestFactory> requestFactory,
                                  std::string serviceName, std::string tokenPath);

    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                           Cancellation::Token token) override;

private:
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const std::shared_ptr<IServiceGateway> tokenGateway;
    const std::shared_ptr<IServiceRequestFactory> requestFactory;
    const std::string serviceName;
    const std::string tokenPath;
};

}  // namespace Ombry::ClientCommunications
