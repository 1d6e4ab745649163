#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinderFactory.h"

#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinder.h"

namespace Ombry::ClientCommunications {

std::unique_ptr<ICandidateServiceFinder> IndefinitelyStickyPolicyCandidateFinderFactory::Create(
    std::shared_ptr<IServiceFinder> finder) {
    return std::make_unique<IndefinitelyStickyPolicyCandidateFinder>(shared_from_this(), std::move(finder));
}

}  // namespace Ombry::ClientCommunications
