#include "OmbryZephCore/ZephSorrelTrivialSyncConnectionPool.h"

#include "OmbryZephCore/ZephResultCodes.h"

namespace OmbryZephCore {

ZephSorrelTrivialSyncConnectionPool::ZephSorrelTrivialSyncConnectionPool(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
    const ZephSorrelConnectionParameters& params)
    : m_Connection(std::move(logger), bVerbose) {
    m_Connection.Configure(params);
}

ZephSorrelSyncConnectionIf* ZephSorrelTrivialSyncConnectionPool::GetConnection(
    const ZephSorrelConnectionParameters& params) {
    const ZephSorrelConnectionParameters& configured = m_Connection.GetParameters();
    const bool bEqual = !(params < configured) && !(configured < params);
    return !m_InUse && bEqual ? &m_Connection : nullptr;
}

std::uint32_t ZephSorrelTrivialSyncConnectionPool::ReleaseConnection(
    ZephSorrelSyncConnectionIf* pConnection) {
    if (pConnection != &m_Connection) return eRC_InvalidArgument;
    m_InUse = false;
    return eRC_Success;
}

}  // namespace OmbryZephCore
