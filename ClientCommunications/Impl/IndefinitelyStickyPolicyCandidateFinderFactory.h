#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/Impl/ICandidateServiceFinderFactory.h"
#include "LibraryLogger/ILogger.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace Ombry::ClientCommunications {

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

}  // namespace Ombry::ClientCommunications
