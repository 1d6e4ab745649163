#pragma once

#include <functional>

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IServiceGatewayFactory.h"

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

/// What everything above calls: hides the finding of a server, authentication, retries and fail-over. Keeps
/// no state of a call; several threads may call at once, each with a request of its own.
class ServiceGateway : public IServiceGateway {
public:
    ServiceGateway(std::shared_ptr<IServiceIteratePolicyExecutor> executor,
                   std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
                   std::shared_ptr<IAuthenticator> authenticator);

    std::shared_ptr<IStringServiceResponse> CallForString(std::shared_ptr<IServiceRequest> request,
                                                          Cancellation::Token token) override;
    std::shared_ptr<IStreamServiceResponse> CallForStream(std::shared_ptr<IServiceRequest> request,
                                                          std::shared_ptr<ISyncWriter> writer,
                                                          Cancellation::Token token) override;

private:
    std::shared_ptr<IServiceResponse> Call(std::shared_ptr<IServiceRequest> request,
                                           Cancellation::Token token,
                                           RequestExecutionDelegate::CallFunction call);

    const std::shared_ptr<IServiceIteratePolicyExecutor> executor;
    const std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory;
    const std::shared_ptr<IAuthenticator> authenticator;
};

class ServiceGatewayFactory : public IServiceGatewayFactory {
public:
    ServiceGatewayFactory(std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
                          std::shared_ptr<IAuthenticator> authenticator,
                          std::shared_ptr<IServiceIteratePolicy> defaultPolicy);

    std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IServiceFinder> finder,
                                            std::shared_ptr<IServiceIteratePolicy> policy) override;
    std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IServiceFinder> finder) override;

private:
    const std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory;
    const std::shared_ptr<IAuthenticator> authenticator;
    const std::shared_ptr<IServiceIteratePolicy> defaultPolicy;
};

}  // namespace Ombry::ClientCommunications
