#pragma once

#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/IServiceGateway.h"
#include "LibraryLogger/ILogger.h"
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
    const std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const bool verbose;
};

}  // namespace Ombry::ClientCommunications
