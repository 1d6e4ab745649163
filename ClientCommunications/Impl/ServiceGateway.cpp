#include "ClientCommunications/Impl/ServiceGateway.h"

#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/ScopedNewHeader.h"

namespace Ombry::ClientCommunications {

ServiceGateway::ServiceGateway(std::shared_ptr<IServiceIteratePolicyExecutor> executor,
                               std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
                               std::shared_ptr<IAuthenticator> authenticator)
    : executor(std::move(executor)),
      gatewayFactory(std::move(gatewayFactory)),
      authenticator(std::move(authenticator)) {}

std::shared_ptr<IStringServiceResponse> ServiceGateway::CallForString(
    std::shared_ptr<IServiceRequest> request, Cancellation::Token token) {
    return std::dynamic_pointer_cast<IStringServiceResponse>(Call(
        request, token, [request](std::shared_ptr<IServiceGateway> gateway, Cancellation::Token callToken) {
            return gateway->CallForString(request, callToken);
        }));
}

std::shared_ptr<IStreamServiceResponse> ServiceGateway::CallForStream(
    std::shared_ptr<IServiceRequest> request, std::shared_ptr<ISyncWriter> writer,
    Cancellation::Token token) {
    return std::dynamic_pointer_cast<IStreamServiceResponse>(
        Call(request, token,
             [request, writer](std::shared_ptr<IServiceGateway> gateway, Cancellation::Token callToken) {
                 return gateway->CallForStream(request, writer, callToken);
             }));
}

std::shared_ptr<IServiceResponse> ServiceGateway::Call(std::shared_ptr<IServiceRequest> request,
                                                       Cancellation::Token token,
                                                       RequestExecutionDelegate::CallFunction call) {
    RequestExecutionDelegate delegate(request, gatewayFactory, authenticator, std::move(call));
    return executor->Execute(std::move(request), std::move(token), std::move(delegate));
}

RequestExecutionDelegate::RequestExecutionDelegate(
    std::shared_ptr<IServiceRequest> request,
    std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
    std::shared_ptr<IAuthenticator> authenticator, CallFunction call)
    : request(std::move(request)),
      gatewayFactory(std::move(gatewayFactory)),
      authenticator(std::move(authenticator)),
      call(std::move(call)) {}

std::shared_ptr<IServiceResponse> RequestExecutionDelegate::operator()(std::shared_ptr<IService> service,
                                                                       bool isLocal,
                                                                       Cancellation::Token token) {
    authenticator->AddAuthentication(request, service, token);
    const ScopedNewHeader id(request, "SF-Destination-Service-Id", service->GetId());
    const ScopedNewHeader name(request, "SF-Destination-Service-Name", service->GetName());
    const ScopedNewHeader nameSpace(request, "SF-Destination-Service-Namespace", service->GetNamespace());
    const ScopedNewHeader local(request, "SF-Destination-Service-Is-Local-DC", isLocal ? "true" : "false");
    const std::shared_ptr<IServiceGateway> gateway = gatewayFactory->Create(service);
    std::shared_ptr<IServiceResponse> response = Attempt(gateway, token);
    const int status = response->GetStatusCode();
    if ((status == 401 || status == 403) && authenticator->AddFreshAuthentication(request, service, token)) {
        response = Attempt(gateway, token);
    }
    return response;
}

std::shared_ptr<IServiceResponse> RequestExecutionDelegate::Attempt(std::shared_ptr<IServiceGateway> gateway,
                                                                    Cancellation::Token token) {
    ++attemptCount;
    const RootAttempt rootAttempt(request, attemptCount);
    const ScopedNewHeader requestId(request, "SF-Request-Id", MakeGuidText());
    if (!call) throw BadFunctionCall();
    return call(std::move(gateway), std::move(token));
}

ServiceGatewayFactory::ServiceGatewayFactory(std::shared_ptr<IHttpClientServiceGatewayFactory> gatewayFactory,
                                             std::shared_ptr<IAuthenticator> authenticator,
                                             std::shared_ptr<IServiceIteratePolicy> defaultPolicy)
    : gatewayFactory(std::move(gatewayFactory)),
      authenticator(std::move(authenticator)),
      defaultPolicy(std::move(defaultPolicy)) {}

std::shared_ptr<IServiceGateway> ServiceGatewayFactory::Create(
    std::shared_ptr<IServiceFinder> finder, std::shared_ptr<IServiceIteratePolicy> policy) {
    return std::make_shared<ServiceGateway>(policy->CreateExecutor(std::move(finder)), gatewayFactory,
                                            authenticator);
}

std::shared_ptr<IServiceGateway> ServiceGatewayFactory::Create(std::shared_ptr<IServiceFinder> finder) {
    return Create(std::move(finder), defaultPolicy);
}

}  // namespace Ombry::ClientCommunications
