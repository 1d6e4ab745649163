#pragma once

#include "ClientCommunications/IFoundServices.h"
#include "ClientCommunications/IFoundServicesCache.h"
#include "ClientCommunications/IStorage.h"
#include "LibraryLogger/ILogger.h"

#include <mutex>

namespace Ombry::ClientCommunications {

/// A set of found services in memory and in one file. Any number of readers; one writer at a time.
class FoundServicesCache : public IFoundServicesCache {
public:
    /// Reads the file; a missing one gives empty lists and a refresh in 300 seconds. `std::runtime_error` for
    /// one that cannot be read. `logger` may be null.
    FoundServicesCache(std::shared_ptr<IStorage> storage, std::shared_ptr<LibraryLogger::ILogger> logger);

    TimePoint GetNextRefreshTime() override;
    std::shared_ptr<IFoundServices> GetFoundServices() override;
    void Save(std::shared_ptr<IFoundServices> services, TimePoint nextRefreshTime) override;

protected:
    const std::shared_ptr<IStorage> storage;
    const std::shared_ptr<LibraryLogger::ILogger> logger;

private:
    std::mutex mutex;  // not held while the file is written
    // Guarded by mutex:
    std::shared_ptr<IFoundServices> foundServices;
    TimePoint nextRefreshTime;
};

}  // namespace Ombry::ClientCommunications
