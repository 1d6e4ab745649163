#pragma once

#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/Impl/ServiceEndpoint.h"
#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"

#include <optional>

namespace Ombry::ClientCommunications {

/// Makes one HTTP exchange with one instance of a service. A service with a registered certificate is
/// accepted by its public key; one without is not checked at all. Holds no state of a call: several threads
/// may call at once.
class HttpClientServiceGateway : public IServiceGateway {
public:
    HttpClientServiceGateway(std::shared_ptr<IService> service,
                             std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool,
                             std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose);
    /// The same for a service that is known already, and does not change.
    HttpClientServiceGateway(std::shared_ptr<const ServiceEndpoint> endpoint,
                             std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool,
                             std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose);

    std::shared_ptr<IStringServiceResponse> CallForString(std::shared_ptr<IServiceRequest> request,
                                                          Cancellation::Token token) override;
    std::shared_ptr<IStreamServiceResponse> CallForStream(std::shared_ptr<IServiceRequest> request,
                                                          std::shared_ptr<ISyncWriter> writer,
                                                          Cancellation::Token token) override;

private:
    const std::shared_ptr<const ServiceEndpoint>& Endpoint(
        std::shared_ptr<const ServiceEndpoint>& room) const;
    void GetHttpClient(std::optional<OmbryZephCore::ZephSorrelSyncHttpClient>& client,
                       const std::shared_ptr<const ServiceEndpoint>& endpoint) const;
    void DoRequest(OmbryZephCore::ZephSorrelSyncHttpClient& client, const ServiceEndpoint& endpoint,
                   const IServiceRequest& request, OmbryZephCore::ZephSyncDataWriterIf& writer,
                   const Cancellation::Token& token) const;
    [[noreturn]] static void ThrowFailure(std::uint32_t code, std::uint32_t subCode,
                                          const Cancellation::Token& token);
    template <class... Parts>
    void LogCorrelated(const LibraryLogger::Place& place, int level, const IServiceRequest& request,
                       const Parts&... parts) const;
    static std::string makeCorrelationString(const IServiceRequest& request);

    const std::shared_ptr<const ServiceEndpoint> known;  // null where the service is asked for each call
    const std::shared_ptr<IService> service;
    const std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const bool verbose;
};

}  // namespace Ombry::ClientCommunications
