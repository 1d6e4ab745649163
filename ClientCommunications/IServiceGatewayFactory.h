#pragma once

#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceIteratePolicy.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Makes gateways that find, choose, authenticate and retry. May be called from several threads at once. A
/// gateway remembers which server works, so a program makes one for each service, and not one for each call.
class IServiceGatewayFactory : public Interface {
public:
    /// A gateway to the servers that `finder` finds, in the order of `policy`; neither may be null. Nothing
    /// is called yet.
    virtual std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IServiceFinder> finder,
                                                    std::shared_ptr<IServiceIteratePolicy> policy) = 0;
    /// The same with the usual policy, `CreateIterateAfterMaxFailures(1)`: another server after each failure.
    virtual std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IServiceFinder> finder) = 0;
};

}  // namespace Ombry::ClientCommunications
