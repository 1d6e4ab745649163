#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"

#include <functional>
#include <memory>

namespace Ombry::ClientCommunications {

/// The work of one visit to a server, as the executor calls it; lives as long as one call, within what it is
/// given, and counts the attempts of the call.
class RequestExecutionDelegate {
public:
    using CallFunction = std::function<std::shared_ptr<IServiceResponse>(std::shared_ptr<IServiceGateway>,
                                                                         Cancellation::Token)>;

    RequestExecutionDelegate(std::shared_ptr<IServiceRequest> request,
                             IHttpClientServiceGatewayFactory& gatewayFactory, IAuthenticator& authenticator,
                             CallFunction call);

    std::shared_ptr<IServiceResponse> operator()(std::shared_ptr<IService> service, bool isLocal,
                                                 Cancellation::Token token);

private:
    std::shared_ptr<IServiceResponse> Attempt(const std::shared_ptr<IServiceGateway>& gateway,
                                              const Cancellation::Token& token);

    const std::shared_ptr<IServiceRequest> request;
    IHttpClientServiceGatewayFactory& gatewayFactory;
    IAuthenticator& authenticator;
    CallFunction call;
    int attemptCount = 0;
};

}  // namespace Ombry::ClientCommunications
