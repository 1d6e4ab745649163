#include "OmbryZephCore/ZephSorrelSyncConnection.h"

#include "OmbryZephCore/ZephResultCodes.h"

namespace OmbryZephCore {

ZephSorrelSyncConnection::ZephSorrelSyncConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger,
                                                   bool bVerbose)
    : m_Connection(std::move(logger), bVerbose) {}

void ZephSorrelSyncConnection::Configure(const ZephSorrelConnectionParametersIf& params) {
    Reset();
    m_Parameters = params;
    m_Configured = true;
}

void ZephSorrelSyncConnection::Reset() {
    Disconnect();
    m_Parameters = ZephSorrelConnectionParameters();
    m_Configured = false;
}

std::uint32_t ZephSorrelSyncConnection::EnsureConnected() {
    if (!m_Configured) return eRC_NotInitialized;
    if (m_Connection.IsConnected() && m_Connection.GetHttpConnection().IsCloseRequested()) Disconnect();
    if (m_Connection.IsConnected()) return eRC_Success;
    // Every cause looks the same to the caller; which it was stands in the log.
    return m_Connection.Connect(m_Parameters) == eRC_Success ? eRC_Success : eRC_IO_ConnectionFailed;
}

void ZephSorrelSyncConnection::Disconnect() {
    if (m_Connection.IsConnected()) m_Connection.Disconnect();
}

std::uint32_t ZephSorrelSyncConnection::Reconnect() {
    Disconnect();
    return EnsureConnected();
}

bool ZephSorrelSyncConnection::IsConnected() {
    return m_Configured && m_Connection.IsConnected();
}

}  // namespace OmbryZephCore
