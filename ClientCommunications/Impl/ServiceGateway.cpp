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
    return std::dynamic_pointer_cast<IStringServiceResponse>(
        Call(request, std::move(token),
             [&request](std::shared_ptr<IServiceGateway> gateway, Cancellation::Token callToken) {
                 return gateway->CallForString(request, callToken);
             }));
}

std::shared_ptr<IStreamServiceResponse> ServiceGateway::CallForStream(
    std::shared_ptr<IServiceRequest> request, std::shared_ptr<ISyncWriter> writer,
    Cancellation::Token token) {
    return std::dynamic_pointer_cast<IStreamServiceResponse>(
        Call(request, std::move(token),
             [&request, &writer](std::shared_ptr<IServiceGateway> gateway, Cancellation::Token callToken) {
                 return gateway->CallForStream(request, writer, callToken);
             }));
}

// What is handed down lives here, and is not called once this call has ended.
std::shared_ptr<IServiceResponse> ServiceGateway::Call(const std::shared_ptr<IServiceRequest>& request,
                                                       Cancellation::Token token,
                                                       RequestExecutionDelegate::CallFunction call) {
    RequestExecutionDelegate delegate(request, gatewayFactory, authenticator, std::move(call));
    return executor->Execute(request, std::move(token), std::ref(delegate));
}

}  // namespace Ombry::ClientCommunications
