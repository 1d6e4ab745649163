#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/IServiceGatewayFactory.h"
#include "ClientCommunications/Impl/RequestExecutionDelegate.h"

#include <functional>

namespace Ombry::ClientCommunications {

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
    template <class Response, class Visit>
    std::shared_ptr<Response> CallFor(const std::shared_ptr<IServiceRequest>& request,
                                      Cancellation::Token token, const Visit& visit);
    std::shared_ptr<IServiceResponse> Call(const std::shared_ptr<IServiceRequest>& request,
                                           Cancellation::Token token,
                                           RequestExecutionDelegate::CallFunction call);

    const std::shared_ptr<IServiceIteratePolicyExecutor> executor;
    const std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory;
    const std::shared_ptr<IAuthenticator> authenticator;
};

}  // namespace Ombry::ClientCommunications
