#pragma once

#include "ClientCommunications/Impl/FoundServicesCache.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// The cache of the discovery service's own instances: makes sure that it knows the seeds that were
/// configured.
class SSDFoundServicesCache : public FoundServicesCache {
public:
    SSDFoundServicesCache(std::shared_ptr<IFoundServices> seeds, std::shared_ptr<IStorage> storage,
                          std::shared_ptr<LibraryLogger::ILogger> logger);

private:
    bool ContainsSeeds(const IFoundServices& seeds);
};

}  // namespace Ombry::ClientCommunications
