#pragma once

#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinderFactory.h"
#include "ClientCommunications/Impl/NextCandidateSelector.h"

#include <list>
#include <memory>

namespace Ombry::ClientCommunications {

/// The candidates of one call. One thread. A candidate that is neither followed by another nor marked a
/// success counts as failed when this object goes.
class IterateAfterMaxFailuresPolicyCandidateFinder : public ICandidateServiceFinder {
public:
    IterateAfterMaxFailuresPolicyCandidateFinder(
        std::shared_ptr<IterateAfterMaxFailuresPolicyCandidateFinderFactory> factory,
        std::shared_ptr<IServiceFinder> finder);
    ~IterateAfterMaxFailuresPolicyCandidateFinder() override;

    ServiceCandidate GetNextCandidate(Cancellation::Token token) override;
    void MarkSuccess() override;

private:
    using SharedState = IterateAfterMaxFailuresPolicyCandidateFinderFactory::SharedState;

    ServiceCandidate ContinueUnproven(const SharedState& copy, const Cancellation::Token& token);
    ServiceCandidate ContinueProven(const SharedState& copy, bool wasTryingAlternate,
                                    const Cancellation::Token& token);
    ServiceCandidate TryHome(const SharedState& copy, const Cancellation::Token& token);
    ServiceCandidate UseCurrent(const SharedState& copy, const Cancellation::Token& token);
    ServiceCandidate UseAlternate(const SharedState& copy, const Cancellation::Token& token);
    ServiceCandidate FindAlternate(const Cancellation::Token& token);
    ServiceCandidate Reselect(const Cancellation::Token& token);
    void LoadLists(const Cancellation::Token& token);
    void SetAlternate(const ServiceCandidate& alternate, int alternateFailures);
    void RecordFailure();

    const std::shared_ptr<IterateAfterMaxFailuresPolicyCandidateFinderFactory> factory;
    const std::shared_ptr<IServiceFinder> finder;
    bool listsLoaded = false;
    std::list<std::shared_ptr<IService>> localServices;
    std::list<std::shared_ptr<IService>> remoteServices;
    NextCandidateSelector selector;
    ServiceCandidate candidate;
    int failures = 0;  // of the candidate, in this call
    bool tryingAlternate = false;
};

}  // namespace Ombry::ClientCommunications
