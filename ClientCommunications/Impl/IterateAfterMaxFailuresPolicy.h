#pragma once

#include <algorithm>
#include <list>
#include <mutex>

#include "ClientCommunications/Impl/CandidateServiceFinder.h"
#include "ClientCommunications/Impl/NextCandidateSelector.h"

namespace Ombry::ClientCommunications {

/// Leaves a server after a number of failures in a row; from a remote server it now and then tries to come
/// home to a local one. Immutable.
class IterateAfterMaxFailuresPolicy : public IServiceIteratePolicy {
public:
    IterateAfterMaxFailuresPolicy(std::shared_ptr<IFailedServices> failedServices,
                                  std::shared_ptr<LibraryLogger::ILogger> logger, int maxFailures)
        : failedServices(std::move(failedServices)), logger(std::move(logger)), maxFailures(maxFailures) {}

    std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) override;

private:
    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const int maxFailures;
};

/// What the policy remembers between the calls of one gateway. Any number of threads.
class IterateAfterMaxFailuresPolicyCandidateFinderFactory
    : public ICandidateServiceFinderFactory,
      public std::enable_shared_from_this<IterateAfterMaxFailuresPolicyCandidateFinderFactory> {
public:
    IterateAfterMaxFailuresPolicyCandidateFinderFactory(std::shared_ptr<IFailedServices> failedServices,
                                                        std::shared_ptr<LibraryLogger::ILogger> logger,
                                                        int maxFailures)
        : maxFailures(maxFailures), failedServices(std::move(failedServices)), logger(std::move(logger)) {}

    std::unique_ptr<ICandidateServiceFinder> Create(std::shared_ptr<IServiceFinder> finder) override;

private:
    friend class IterateAfterMaxFailuresPolicyCandidateFinder;

    struct SharedState {
        std::shared_ptr<IService> currentService;  // the server in use
        bool currentIsLocal = false;
        int currentFailures = 0;   // of it, in a row
        int currentSuccesses = 0;  // on it, since it came into use or home was tried in vain
        std::shared_ptr<IService> alternateService;  // a local server to try from a remote one
        bool alternateIsLocal = false;
        int alternateFailures = 0;

        /// The server in use stays proven. One that is not, since it has failed or was chosen meanwhile, does
        /// not become so.
        void CountSuccessesAnew() { currentSuccesses = std::min(currentSuccesses, 1); }
    };

    const int maxFailures;
    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    std::mutex mutex;
    SharedState state;  // guarded by mutex
};

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
