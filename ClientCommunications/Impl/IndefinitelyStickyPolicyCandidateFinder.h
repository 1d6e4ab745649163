#pragma once

#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinderFactory.h"
#include "ClientCommunications/Impl/NextCandidateSelector.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// The candidates of one call. One thread.
class IndefinitelyStickyPolicyCandidateFinder : public ICandidateServiceFinder {
public:
    IndefinitelyStickyPolicyCandidateFinder(
        std::shared_ptr<IndefinitelyStickyPolicyCandidateFinderFactory> factory,
        std::shared_ptr<IServiceFinder> finder);
    ~IndefinitelyStickyPolicyCandidateFinder() override;

    ServiceCandidate GetNextCandidate(Cancellation::Token token) override;
    void MarkSuccess() override;

private:
    void AwaitTurn(const Cancellation::Token& token);
    void LoadCandidates(const Cancellation::Token& token);
    void ReleaseSearch();
    bool HasStickyService() const;
    void EndSearch();

    const std::shared_ptr<IndefinitelyStickyPolicyCandidateFinderFactory> factory;
    const std::shared_ptr<IServiceFinder> finder;
    NextCandidateSelector selector;
    bool isSearcher = false;
    bool candidatesLoaded = false;
    bool usingFoundServices = false;
};

}  // namespace Ombry::ClientCommunications
