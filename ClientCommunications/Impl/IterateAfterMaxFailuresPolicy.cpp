#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicy.h"

#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinderFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyExecutor.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IServiceIteratePolicyExecutor> IterateAfterMaxFailuresPolicy::CreateExecutor(
    std::shared_ptr<IServiceFinder> finder) {
    auto factory = std::make_shared<IterateAfterMaxFailuresPolicyCandidateFinderFactory>(failedServices,
                                                                                         logger, maxFailures);
    return std::make_shared<ServiceIteratePolicyExecutor>(std::move(finder), std::move(factory), logger);
}

}  // namespace Ombry::ClientCommunications
