#include "ClientCommunications/Impl/RequestExecutionDelegate.h"

#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/RootAttempt.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/Service.h"

namespace Ombry::ClientCommunications {

RequestExecutionDelegate::RequestExecutionDelegate(std::shared_ptr<IServiceRequest> request,
                                                   IHttpClientServiceGatewayFactory& gatewayFactory,
                                                   IAuthenticator& authenticator, CallFunction call)
    : request(std::move(request)),
      gatewayFactory(gatewayFactory),
      authenticator(authenticator),
      call(std::move(call)) {}

std::shared_ptr<IServiceResponse> RequestExecutionDelegate::operator()(std::shared_ptr<IService> service,
                                                                       bool isLocal,
                                                                       Cancellation::Token token) {
    authenticator.AddAuthentication(request, service, token);
    const ServiceText idText(*service, &IService::GetId, &ServiceDto::id);
    const ScopedNewHeader id(request, KnownHeader::DestinationServiceId, idText.Get());
    const ServiceText nameText(*service, &IService::GetName, &ServiceDto::serviceName);
    const ScopedNewHeader name(request, KnownHeader::DestinationServiceName, nameText.Get());
    const ServiceText nameSpaceText(*service, &IService::GetNamespace, &ServiceDto::serviceNamespace);
    const ScopedNewHeader nameSpace(request, KnownHeader::DestinationServiceNamespace, nameSpaceText.Get());
    const ScopedNewHeader local(request, KnownHeader::DestinationServiceIsLocal, isLocal ? "true" : "false");
    const std::shared_ptr<IServiceGateway> gateway = gatewayFactory.Create(service);
    std::shared_ptr<IServiceResponse> response = Attempt(gateway, token);
    const int status = response->GetStatusCode();
    if ((status == 401 || status == 403) && authenticator.AddFreshAuthentication(request, service, token)) {
        response = Attempt(gateway, token);
    }
    return response;
}

std::shared_ptr<IServiceResponse> RequestExecutionDelegate::Attempt(
    const std::shared_ptr<IServiceGateway>& gateway, const Cancellation::Token& token) {
    ++attemptCount;
    const RootAttempt rootAttempt(request, attemptCount);
    const ScopedNewHeader requestId(request, KnownHeader::RequestId, MakeGuidText());
    if (!call) throw BadFunctionCall();
    return call(gateway, token);
}

}  // namespace Ombry::ClientCommunications
