#pragma once

#include "OmbryZephCore/ZephSorrelSyncConnection.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionIf.h"

#include <memory>

namespace OmbryZephCore {

/// A pool of one connection, for a client that was given no pool. One thread at a time.
class ZephSorrelTrivialSyncConnectionPool : public ZephSorrelSyncConnectionPoolIf {
public:
    ZephSorrelTrivialSyncConnectionPool(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
                                        const ZephSorrelConnectionParameters& params);

    /// The one connection, still owned by the pool; null for other parameters.
    ZephSorrelSyncConnectionIf* GetConnection(const ZephSorrelConnectionParameters& params) override;
    /// `eRC_InvalidArgument` for any other object. Keeps the connection.
    std::uint32_t ReleaseConnection(ZephSorrelSyncConnectionIf* pConnection) override;

private:
    ZephSorrelSyncConnection m_Connection;
    bool m_InUse = false;  // never set: the one client asks for one connection at a time
};

}  // namespace OmbryZephCore
