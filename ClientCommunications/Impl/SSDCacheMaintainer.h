#pragma once

#include "ClientCommunications/IFoundServicesCache.h"
#include "ClientCommunications/IServiceFinder.h"
#include "LibraryLogger/ILogger.h"

#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

namespace Ombry::ClientCommunications {

/// Asks the discovery service about once a day for its own instances, on a thread of its own, and writes them
/// to the cache.
class SSDCacheMaintainer {
public:
    /// Starts nothing. `logger` may be null.
    SSDCacheMaintainer(std::shared_ptr<IServiceFinder> finder, std::shared_ptr<IFoundServicesCache> cache,
                       std::shared_ptr<LibraryLogger::ILogger> logger);
    /// Ends a search in progress and joins the thread; may wait for a resolver or a connect in flight, and
    /// for the end of an answer that keeps coming.
    ~SSDCacheMaintainer();
    SSDCacheMaintainer(const SSDCacheMaintainer&) = delete;
    SSDCacheMaintainer& operator=(const SSDCacheMaintainer&) = delete;

    /// Starts the thread; called once.
    void Start();

private:
    void MaintainCache();
    TimePoint Refresh(std::mt19937& generator);

    const std::shared_ptr<IServiceFinder> finder;
    const std::shared_ptr<IFoundServicesCache> cache;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const std::shared_ptr<IRootRequestMetaData> metaData;
    std::mutex mutex;
    std::condition_variable condition;
    bool stopping = false;  // guarded by mutex
    const Cancellation::Token cancel;
    std::thread thread;
};

}  // namespace Ombry::ClientCommunications
