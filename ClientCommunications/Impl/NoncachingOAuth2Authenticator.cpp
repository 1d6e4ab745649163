#include "ClientCommunications/Impl/NoncachingOAuth2Authenticator.h"

#include "ClientCommunications/Impl/BearerHeader.h"
#include "ClientCommunications/Impl/OAuth2ServiceGatewayClient.h"

namespace Ombry::ClientCommunications {

NoncachingOAuth2Authenticator::NoncachingOAuth2Authenticator(
    std::shared_ptr<LibraryLogger::ILogger> logger, std::shared_ptr<IServiceGateway> tokenGateway,
    std::shared_ptr<IServiceRequestFactory> requestFactory, std::string serviceName, std::string tokenPath)
    : logger(std::move(logger)),
      tokenGateway(std::move(tokenGateway)),
      requestFactory(std::move(requestFactory)),
      serviceName(std::move(serviceName)),
      tokenPath(std::move(tokenPath)) {}

void NoncachingOAuth2Authenticator::AddAuthentication(std::shared_ptr<IServiceRequest> request,
                                                      std::shared_ptr<IService>, Cancellation::Token token) {
    OAuth2ServiceGatewayClient client(tokenGateway, requestFactory, tokenPath, logger);
    SetBearerHeader(*request, client.GetToken(serviceName, nullptr, token).accessToken);
}

}  // namespace Ombry::ClientCommunications
