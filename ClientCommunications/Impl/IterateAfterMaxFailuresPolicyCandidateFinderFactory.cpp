#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinderFactory.h"

#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinder.h"

namespace Ombry::ClientCommunications {

std::unique_ptr<ICandidateServiceFinder> IterateAfterMaxFailuresPolicyCandidateFinderFactory::Create(
    std::shared_ptr<IServiceFinder> finder) {
    return std::make_unique<IterateAfterMaxFailuresPolicyCandidateFinder>(shared_from_this(),
                                                                          std::move(finder));
}

}  // namespace Ombry::ClientCommunications
