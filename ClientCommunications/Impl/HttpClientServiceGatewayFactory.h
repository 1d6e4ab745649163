#pragma once

#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/Impl/ServiceEndpoint.h"
#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephMutex.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"

namespace Ombry::ClientCommunications {

/// Makes gateways that share one connection pool. The pool lives as long as the factory or any of its
/// gateways.
class HttpClientServiceGatewayFactory : public IHttpClientServiceGatewayFactory {
public:
    /// Starts the pool; `std::runtime_error` if that fails.
    HttpClientServiceGatewayFactory(std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose);

    std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IService> service) override;

    /// Judges the result of starting the pool: `std::runtime_error` unless it is 0.
    static void RequireStarted(std::uint32_t code);

private:
    std::shared_ptr<const ServiceEndpoint> EndpointOf(std::shared_ptr<IService> service);

    const std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const bool verbose;
    OmbryZephCore::ZephMutex mutex;
    std::shared_ptr<const ServiceEndpoint> latest;  // guarded by mutex: most programs call one service
};

}  // namespace Ombry::ClientCommunications
