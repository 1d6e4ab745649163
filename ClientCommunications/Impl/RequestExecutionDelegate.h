#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"

#include <functional>
#include <memory>

namespace Ombry::ClientCommunications {

/// The work of one visit to a server, as the executor calls it; lives as long as one call and counts its
/// attempts.
class RequestExecutionDelegate {
public:
    using CallFunction = std::function<std::shared_ptr<IServiceResponse>(std::shared_ptr<IServiceGateway>,
                                                                         Cancellation::Token)>;

    RequestExecutionDelegate(std::shared_ptr<IServiceRequest> request,
                             std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
                             std::shared_ptr<IAuthenticator> authenticator, CallFunction call);

    std::shared_ptr<IServiceResponse> operator()(std::shared_ptr<IService> service, bool isLocal,
                                                 Cancellation::Token token);

private:
    std::shared_ptr<IServiceResponse> Attempt(std::shared_ptr<IServiceGateway> gateway,
                                              Cancellation::Token token);

    std::shared_ptr<IServiceRequest> request;
    std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory;
    std::shared_ptr<IAuthenticator> authenticator;
    CallFunction call;
    int attemptCount = 0;
};

}  // namespace Ombry::ClientCommunications
