#pragma once

#include "ClientCommunications/FoundServicesDto.h"
#include "ClientCommunications/IKeyValueStorage.h"
#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceRequestFactory.h"
#include "LibraryLogger/ILogger.h"

namespace Ombry::ClientCommunications {

/// Asks the discovery service which instances of a service exist, and keeps the answer in a cache: a fresh
/// copy needs no call, and a stale one survives an outage. Keeps no state in memory; several threads may find
/// at once.
class ServiceFinder : public IServiceFinder {
public:
    /// `cache` and `logger` may be null. `path` is the request path, and the key in the cache.
    ServiceFinder(std::shared_ptr<IServiceGateway> gateway,
                  std::shared_ptr<IServiceRequestFactory> requestFactory,
                  std::shared_ptr<IKeyValueStorage> cache, std::shared_ptr<LibraryLogger::ILogger> logger,
                  std::string path);

    /// Throws what the call threw, `std::runtime_error` for a status of 300 or above, if there is no copy to
    /// fall back on; and if the copy cannot be read.
    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData> metaData,
                                         Cancellation::Token token) override;
    std::shared_ptr<IFoundServices> Find(Cancellation::Token token) override;

private:
    bool ReadCache(FoundServicesDto& dto);
    /// Null if the service refused and the copy is to serve.
    std::shared_ptr<IFoundServices> Ask(std::shared_ptr<IRootRequestMetaData> metaData,
                                        Cancellation::Token token, bool hasCached,
                                        const FoundServicesDto& cached);
    void Store(const IServiceResponse& response, FoundServicesDto& dto);
    void TraceFoundServices(const FoundServicesDto& dto, const char* source) const;

    const std::shared_ptr<IServiceGateway> gateway;
    const std::shared_ptr<IServiceRequestFactory> requestFactory;
    const std::shared_ptr<IKeyValueStorage> cache;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const std::string path;
    const std::shared_ptr<IRootRequestMetaData> metaData;
};

}  // namespace Ombry::ClientCommunications
