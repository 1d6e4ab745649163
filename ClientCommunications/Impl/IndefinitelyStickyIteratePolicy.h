#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "ClientCommunications/Impl/CandidateServiceFinder.h"
#include "ClientCommunications/Impl/NextCandidateSelector.h"

namespace Ombry::ClientCommunications {

/// Stays for ever with the first server that worked. Immutable.
class IndefinitelyStickyIteratePolicy : public IServiceIteratePolicy {
public:
    IndefinitelyStickyIteratePolicy(std::shared_ptr<IFailedServices> failedServices,
                                    std::shared_ptr<LibraryLogger::ILogger> logger)
        : failedServices(std::move(failedServices)), logger(std::move(logger)) {}

    std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) override;

private:
    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
};

/// What the policy remembers between the calls of one gateway. Any number of threads; only one of them looks
/// for a server while the others wait.
class IndefinitelyStickyPolicyCandidateFinderFactory
    : public ICandidateServiceFinderFactory,
      public std::enable_shared_from_this<IndefinitelyStickyPolicyCandidateFinderFactory> {
public:
    IndefinitelyStickyPolicyCandidateFinderFactory(std::shared_ptr<IFailedServices> failedServices,
                                                   std::shared_ptr<LibraryLogger::ILogger> logger)
        : failedServices(std::move(failedServices)), logger(std::move(logger)) {}

    std::unique_ptr<ICandidateServiceFinder> Create(std::shared_ptr<IServiceFinder> finder) override;

private:
    friend class IndefinitelyStickyPolicyCandidateFinder;

    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    std::mutex mutex;
    std::condition_variable condition;
    // Guarded by mutex:
    std::shared_ptr<IService> stickyService;  // the server in use
    bool stickyIsLocal = false;
    bool established = false;  // a call has succeeded: the stickiness holds, for good
    bool searching = false;    // one thread is looking for the server
    std::thread::id searchThread;
};

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
