#pragma once

#include "ClientCommunications/IFoundServicesCache.h"
#include "ClientCommunications/IServiceFinder.h"

namespace Ombry::ClientCommunications {

/// Finds the discovery service itself, from its cache alone: it never goes to the network, so that reaching
/// the discovery service needs no discovery. Several threads may find at once.
class CachedSSDServiceFinder : public IServiceFinder {
public:
    explicit CachedSSDServiceFinder(std::shared_ptr<IFoundServicesCache> cache) : cache(std::move(cache)) {}

    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData> metaData,
                                         Cancellation::Token token) override;
    std::shared_ptr<IFoundServices> Find(Cancellation::Token token) override;

private:
    const std::shared_ptr<IFoundServicesCache> cache;  // guards itself
};

}  // namespace Ombry::ClientCommunications
