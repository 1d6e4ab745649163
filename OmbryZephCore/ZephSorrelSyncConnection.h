#pragma once

#include "OmbryZephCore/ZephHttpClientSocketSyncConnection.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionIf.h"

#include <memory>

namespace OmbryZephCore {

/// A connection that is made when it is needed, with the parameters that it was configured with. One thread
/// at a time.
class ZephSorrelSyncConnection : public ZephSorrelSyncConnectionIf {
public:
    ZephSorrelSyncConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose);

    void Configure(const ZephSorrelConnectionParametersIf& params);
    /// Disconnects and goes back to an unconfigured connection: an empty host and port 0.
    void Reset();

    const ZephSorrelConnectionParameters& GetParameters() const override { return m_Parameters; }
    std::uint32_t EnsureConnected() override;
    void Disconnect() override;
    std::uint32_t Reconnect() override;
    bool IsConnected() override;
    /// Gives back memory that is only needed during an exchange; for a connection that is likely to rest.
    void ReleaseIdleMemory() { m_Connection.ReleaseIdleMemory(); }
    ZephHttpClientConnectionIf& GetHttpConnection() override { return m_Connection.GetHttpConnection(); }
    ZephSyncIOControllerIf& GetSyncIOController() override { return m_Connection.GetSyncIOController(); }

private:
    ZephHttpClientSocketSyncConnection m_Connection;
    ZephSorrelConnectionParameters m_Parameters;
    bool m_Configured = false;
};

}  // namespace OmbryZephCore
