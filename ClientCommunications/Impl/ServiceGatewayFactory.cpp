#include "ClientCommunications/Impl/ServiceGatewayFactory.h"

#include "ClientCommunications/Impl/ServiceGateway.h"

namespace Ombry::ClientCommunications {

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
