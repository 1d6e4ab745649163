#include "ClientCommunications/Impl/HttpClientServiceGatewayFactory.h"

#include "ClientCommunications/Impl/HttpClientServiceGateway.h"
#include "ClientCommunications/Impl/Service.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {

HttpClientServiceGatewayFactory::HttpClientServiceGatewayFactory(
    std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose)
    : connectionPool(std::make_shared<OmbryZephCore::ZephSorrelSyncConnectionPool>(logger)),
      logger(logger),
      verbose(verbose) {
    constexpr std::uint32_t idleSeconds = 300;
    constexpr std::uint32_t scanSeconds = 300;
    connectionPool->SetVerbose(verbose);
    RequireStarted(connectionPool->Start(idleSeconds, scanSeconds));
}

void HttpClientServiceGatewayFactory::RequireStarted(std::uint32_t code) {
    if (code == OmbryZephCore::eRC_Success) return;
    throw std::runtime_error("Connection pool initialization failed due to error " + std::to_string(code));
}

std::shared_ptr<IServiceGateway> HttpClientServiceGatewayFactory::Create(std::shared_ptr<IService> service) {
    if (!Service::Of(*service))
        return std::make_shared<HttpClientServiceGateway>(std::move(service), connectionPool, logger,
                                                          verbose);
    return std::make_shared<HttpClientServiceGateway>(EndpointOf(std::move(service)), connectionPool, logger,
                                                      verbose);
}

// A `Service` does not change, so what was made of it holds as long as it does.
std::shared_ptr<const ServiceEndpoint> HttpClientServiceGatewayFactory::EndpointOf(
    std::shared_ptr<IService> service) {
    {
        std::lock_guard guard(mutex);
        if (latest && latest->service == service) return latest;
    }
    auto endpoint = std::make_shared<const ServiceEndpoint>(std::move(service));
    std::shared_ptr<const ServiceEndpoint> previous = endpoint;  // goes behind the lock
    std::lock_guard guard(mutex);
    latest.swap(previous);
    return endpoint;
}

}  // namespace Ombry::ClientCommunications
