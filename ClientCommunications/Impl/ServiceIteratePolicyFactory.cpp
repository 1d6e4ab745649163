#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"

#include "ClientCommunications/Impl/IndefinitelyStickyIteratePolicy.h"
#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicy.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IServiceIteratePolicy> ServiceIteratePolicyFactory::CreateIndefinitelySticky() {
    return std::make_shared<IndefinitelyStickyIteratePolicy>(failedServices, logger);
}

std::shared_ptr<IServiceIteratePolicy> ServiceIteratePolicyFactory::CreateIterateAfterMaxFailures(
    int maxFailures) {
    return std::make_shared<IterateAfterMaxFailuresPolicy>(failedServices, logger, maxFailures);
}

}  // namespace Ombry::ClientCommunications
