#include "ClientCommunications/Impl/IndefinitelyStickyIteratePolicy.h"

#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinderFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyExecutor.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IServiceIteratePolicyExecutor> IndefinitelyStickyIteratePolicy::CreateExecutor(
    std::shared_ptr<IServiceFinder> finder) {
    auto factory = std::make_shared<IndefinitelyStickyPolicyCandidateFinderFactory>(failedServices, logger);
    return std::make_shared<ServiceIteratePolicyExecutor>(std::move(finder), std::move(factory), logger);
}

}  // namespace Ombry::ClientCommunications
