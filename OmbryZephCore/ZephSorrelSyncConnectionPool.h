#pragma once

#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionIf.h"

#include <memory>

namespace OmbryZephCore {

/// Keeps connections alive between requests and closes those that were idle for too long. Shared by threads;
/// whoever holds a connection must give it back before the pool goes.
class ZephSorrelSyncConnectionPool : public ZephSorrelSyncConnectionPoolIf {
public:
    /// `logger` may be null. No thread is started yet.
    explicit ZephSorrelSyncConnectionPool(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephSorrelSyncConnectionPool() override;
    ZephSorrelSyncConnectionPool(const ZephSorrelSyncConnectionPool&) = delete;
    ZephSorrelSyncConnectionPool& operator=(const ZephSorrelSyncConnectionPool&) = delete;

    /// Whether connections that are made from now on log each step and what comes over TLS; false by default.
    void SetVerbose(bool bVerbose);

    /// Starts the eviction thread: connections idle for more than `nMaxIdleSeconds` (0: since an earlier
    /// second of the wall clock) are closed by a scan every `nScanIntervalSeconds` (capped at 864000; with 0
    /// one scan follows the other, which takes a processor). A pool that was never started keeps its
    /// connections to its end. A running thread is stopped first. Returns 0; `std::system_error` if no thread
    /// can be made.
    std::uint32_t Start(std::uint32_t nMaxIdleSeconds, std::uint32_t nScanIntervalSeconds);

    ZephSorrelSyncConnectionIf* GetConnection(const ZephSorrelConnectionParameters& params) override;

    /// Keeps a connection that is up and was not asked to close; deletes any other. An object that is not of
    /// this pool is ignored, and not deleted.
    std::uint32_t ReleaseConnection(ZephSorrelSyncConnectionIf* pConnection) override;

private:
    struct SharedState;
    class PoolConnection;
    std::unique_ptr<SharedState> m_State;
};

}  // namespace OmbryZephCore
