#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/IServiceGatewayFactory.h"

#include <memory>

namespace Ombry::ClientCommunications {

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
