#pragma once

#include <memory>

#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceIteratePolicy.h"

namespace Ombry::ClientCommunications {

/// Makes gateways that find, choose, authenticate and retry.
class IServiceGatewayFactory : public Interface {
public:
    virtual std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IServiceFinder> finder,
                                                    std::shared_ptr<IServiceIteratePolicy> policy) = 0;
    virtual std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IServiceFinder> finder) = 0;
};

}  // namespace Ombry::ClientCommunications
