#include "ClientCommunications/Impl/BootstrapGateways.h"

#include "ClientCommunications/Impl/BearerHeader.h"
#include "ClientCommunications/Impl/OAuth2ServiceGatewayClient.h"
#include "ClientCommunications/Impl/ServiceRequest.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IServiceRequest> BootstrapServiceRequestFactory::Create(
    const std::string& method, const std::string& path, const std::string& contractVersion,
    std::shared_ptr<IRootRequestMetaData>) {
    return Create(method, path, contractVersion);
}

std::shared_ptr<IServiceRequest> BootstrapServiceRequestFactory::Create(const std::string& method,
                                                                        const std::string& path,
                                                                        const std::string& contractVersion) {
    return CreateServiceRequest(method, path, contractVersion);
}

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

std::shared_ptr<IStringServiceResponse> AuthenticatingServiceGateway::CallForString(
    std::shared_ptr<IServiceRequest> request, Cancellation::Token token) {
    authenticator->AddAuthentication(request, nullptr, token);
    return inner->CallForString(std::move(request), token);
}

std::shared_ptr<IStreamServiceResponse> AuthenticatingServiceGateway::CallForStream(
    std::shared_ptr<IServiceRequest> request, std::shared_ptr<ISyncWriter> writer,
    Cancellation::Token token) {
    authenticator->AddAuthentication(request, nullptr, token);
    return inner->CallForStream(std::move(request), std::move(writer), token);
}

}  // namespace Ombry::ClientCommunications
