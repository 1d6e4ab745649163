#include "ClientCommunications/Impl/ServiceGateway.h"

namespace Ombry::ClientCommunications {

ServiceGateway::ServiceGateway(std::shared_ptr<IServiceIteratePolicyExecutor> executor,
                               std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
                               std::shared_ptr<IAuthenticator> authenticator)
    : executor(std::move(executor)),
      gatewayFactory(std::move(gatewayFactory)),
      authenticator(std::move(authenticator)) {}

std::shared_ptr<IStringServiceResponse> ServiceGateway::CallForString(
    std::shared_ptr<IServiceRequest> request, Cancellation::Token token) {
    return CallFor<IStringServiceResponse>(
        request, std::move(token),
        [&request](IServiceGateway& gateway, const Cancellation::Token& callToken) {
            return gateway.CallForString(request, callToken);
        });
}

std::shared_ptr<IStreamServiceResponse> ServiceGateway::CallForStream(
    std::shared_ptr<IServiceRequest> request, std::shared_ptr<ISyncWriter> writer,
    Cancellation::Token token) {
    return CallFor<IStreamServiceResponse>(
        request, std::move(token),
        [&request, &writer](IServiceGateway& gateway, const Cancellation::Token& callToken) {
            return gateway.CallForStream(request, writer, callToken);
        });
}

// The answer is nearly always the last that came, whose type is known; only another one is cast.
template <class Response, class Visit>
std::shared_ptr<Response> ServiceGateway::CallFor(const std::shared_ptr<IServiceRequest>& request,
                                                  Cancellation::Token token, const Visit& visit) {
    std::shared_ptr<Response> latest;
    const std::shared_ptr<IServiceResponse> answer =
        Call(request, std::move(token),
             [&](std::shared_ptr<IServiceGateway> gateway, Cancellation::Token callToken) {
                 return latest = visit(*gateway, callToken);
             });
    return answer == latest ? latest : std::dynamic_pointer_cast<Response>(answer);
}

// What is handed down lives here, and is not called once this call has ended.
std::shared_ptr<IServiceResponse> ServiceGateway::Call(const std::shared_ptr<IServiceRequest>& request,
                                                       Cancellation::Token token,
                                                       RequestExecutionDelegate::CallFunction call) {
    RequestExecutionDelegate delegate(request, *gatewayFactory, *authenticator, std::move(call));
    return executor->Execute(request, std::move(token), std::ref(delegate));
}

}  // namespace Ombry::ClientCommunications
