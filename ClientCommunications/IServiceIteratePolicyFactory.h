#pragma once

#include <memory>

#include "ClientCommunications/IServiceIteratePolicy.h"

namespace Ombry::ClientCommunications {

class IServiceIteratePolicyFactory : public Interface {
public:
    virtual std::shared_ptr<IServiceIteratePolicy> CreateIndefinitelySticky() = 0;
    virtual std::shared_ptr<IServiceIteratePolicy> CreateIterateAfterMaxFailures(int maxFailures) = 0;
};

}  // namespace Ombry::ClientCommunications
