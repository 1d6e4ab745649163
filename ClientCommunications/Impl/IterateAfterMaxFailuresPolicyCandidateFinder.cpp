#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinder.h"

#include <algorithm>
#include <limits>

namespace Ombry::ClientCommunications {
namespace {

// Calls on a remote server after which a local one gets a try, and after a vain try the next.
constexpr int SuccessesBeforeComingHome = 50;

// Every search makes new objects, so servers are the same if their ids are.
bool IsSame(const std::shared_ptr<IService>& left, const std::shared_ptr<IService>& right) {
    return left && right && (left == right || left->GetId() == right->GetId());
}

// One more failure of a server, seen by this call and by the calls beside it: both counts become the higher
// one.
void LevelFailures(int& shared, int& own) {
    ++shared;
    shared = own = std::max(shared, own);
}

}  // namespace

IterateAfterMaxFailuresPolicyCandidateFinder::IterateAfterMaxFailuresPolicyCandidateFinder(
    std::shared_ptr<IterateAfterMaxFailuresPolicyCandidateFinderFactory> theFactory,
    std::shared_ptr<IServiceFinder> theFinder)
    : factory(std::move(theFactory)),
      finder(std::move(theFinder)),
      selector(factory->failedServices, factory->logger, Cancellation::SleepUntil) {}

IterateAfterMaxFailuresPolicyCandidateFinder::~IterateAfterMaxFailuresPolicyCandidateFinder() {
    if (!candidate.service) return;
    try {
        RecordFailure();
        selector.MarkFailure();
    } catch (...) {
        // A selection that threw may have left the selector without a candidate; and whatever else fails
        // here, the call has its own ending, which must not be replaced.
    }
}

ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::GetNextCandidate(Cancellation::Token token) {
    const bool wasTryingAlternate = tryingAlternate;
    if (candidate.service) RecordFailure();
    SharedState copy;
    {
        std::lock_guard guard(factory->mutex);
        copy = factory->state;
    }
    return copy.currentSuccesses < 1 ? ContinueUnproven(copy, token)
                                     : ContinueProven(copy, wasTryingAlternate, token);
}

// The server in use has not answered yet, or failed last.
ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::ContinueUnproven(
    const SharedState& copy, const Cancellation::Token& token) {
    if (!candidate.service) {
        const bool usable = copy.currentService && copy.currentFailures < factory->maxFailures;
        return usable ? UseCurrent(copy, token) : Reselect(token);
    }
    if (failures >= factory->maxFailures) return Reselect(token);
    selector.RetryCurrent(token);
    return candidate;
}

// The server in use answers. From a remote one there is now and then one try at home.
ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::ContinueProven(
    const SharedState& copy, bool wasTryingAlternate, const Cancellation::Token& token) {
    if (!wasTryingAlternate && !copy.currentIsLocal && copy.currentSuccesses >= SuccessesBeforeComingHome) {
        ServiceCandidate alternate = TryHome(copy, token);
        if (alternate.service) return alternate;
    }
    return UseCurrent(copy, token);
}

// A local server, even if it has to be waited for. A try that is in vain starts the count of successes anew,
// whatever ends it: otherwise each further call would wait and search as this one did.
ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::TryHome(const SharedState& copy,
                                                                       const Cancellation::Token& token) {
    const bool usable = copy.alternateService && copy.alternateFailures < factory->maxFailures;
    try {
        return usable ? UseAlternate(copy, token) : FindAlternate(token);
    } catch (...) {
        std::lock_guard guard(factory->mutex);
        factory->state.CountSuccessesAnew();
        throw;
    }
}

ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::UseCurrent(const SharedState& copy,
                                                                          const Cancellation::Token& token) {
    failures = copy.currentFailures;
    if (IsSame(candidate.service, copy.currentService)) {
        selector.RetryCurrent(token);
        return candidate;
    }
    if (candidate.service && copy.currentSuccesses > 0) selector.ForgetPassedFailures();
    selector.SetCandidate({copy.currentService, copy.currentIsLocal});
    return candidate = selector.Next(token);
}

ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::UseAlternate(
    const SharedState& copy, const Cancellation::Token& token) {
    selector.SetCandidate({copy.alternateService, true});
    candidate = selector.Next(token);
    failures = copy.alternateFailures;
    SetAlternate(candidate, failures);
    tryingAlternate = true;
    return candidate;
}

ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::FindAlternate(
    const Cancellation::Token& token) {
    LoadLists(token);
    selector.BorrowCandidates(&localServices, nullptr);
    candidate = selector.Next(token);
    failures = 0;
    SetAlternate(candidate, 0);
    if (candidate.service) tryingAlternate = true;
    return candidate;
}

ServiceCandidate IterateAfterMaxFailuresPolicyCandidateFinder::Reselect(const Cancellation::Token& token) {
    LoadLists(token);
    selector.BorrowCandidates(&localServices, &remoteServices);
    candidate = selector.Next(token);
    failures = 0;
    std::lock_guard guard(factory->mutex);
    factory->state.currentService = candidate.service;
    factory->state.currentIsLocal = candidate.isLocal;
    factory->state.currentFailures = 0;
    factory->state.currentSuccesses = 0;
    return candidate;
}

void IterateAfterMaxFailuresPolicyCandidateFinder::LoadLists(const Cancellation::Token& token) {
    if (listsLoaded) return;
    const std::shared_ptr<IFoundServices> found = finder->Find(token);
    localServices = found->GetLocal();
    remoteServices = found->GetRemote();
    listsLoaded = true;
}

void IterateAfterMaxFailuresPolicyCandidateFinder::SetAlternate(const ServiceCandidate& alternate,
                                                                int alternateFailures) {
    std::lock_guard guard(factory->mutex);
    factory->state.alternateService = alternate.service;
    factory->state.alternateIsLocal = alternate.isLocal;
    factory->state.alternateFailures = alternateFailures;
    if (!alternate.service) factory->state.CountSuccessesAnew();
}

void IterateAfterMaxFailuresPolicyCandidateFinder::RecordFailure() {
    ++failures;
    std::lock_guard guard(factory->mutex);
    SharedState& state = factory->state;
    if (tryingAlternate) {
        tryingAlternate = false;
        if (IsSame(candidate.service, state.alternateService))
            LevelFailures(state.alternateFailures, failures);
        state.CountSuccessesAnew();
        return;
    }
    if (!IsSame(candidate.service, state.currentService)) return;
    LevelFailures(state.currentFailures, failures);
    state.currentSuccesses = 0;
}

void IterateAfterMaxFailuresPolicyCandidateFinder::MarkSuccess() {
    selector.MarkSuccess();
    {
        std::lock_guard guard(factory->mutex);
        SharedState& state = factory->state;
        if (IsSame(candidate.service, state.currentService)) {
            // Busy gateways live long enough to reach the end of the range.
            if (state.currentSuccesses < std::numeric_limits<int>::max()) ++state.currentSuccesses;
        } else {
            state.currentService = candidate.service;
            state.currentIsLocal = candidate.isLocal;
            state.currentSuccesses = 1;
        }
        state.currentFailures = 0;
        if (tryingAlternate && IsSame(candidate.service, state.alternateService)) {
            state.alternateService = nullptr;
            state.alternateIsLocal = false;
            state.alternateFailures = 0;
        }
    }
    tryingAlternate = false;
    candidate = ServiceCandidate();
    failures = 0;
}

}  // namespace Ombry::ClientCommunications
