#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/Impl/ICandidateServiceFinderFactory.h"
#include "LibraryLogger/ILogger.h"

#include <algorithm>
#include <memory>
#include <mutex>

namespace Ombry::ClientCommunications {

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

}  // namespace Ombry::ClientCommunications
