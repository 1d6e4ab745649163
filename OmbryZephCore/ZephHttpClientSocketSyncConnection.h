#pragma once

#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephSSLConnectionIf.h"
#include "OmbryZephCore/ZephSSLIO.h"
#include "OmbryZephCore/ZephSSLNotifierIf.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "OmbryZephCore/ZephSocketIO.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"
#include "OmbryZephCore/ZephTerminatorAdapter.h"
#include "OmbryZephCore/ZephUserTaskIf.h"

#include <memory>

namespace OmbryZephCore {

/// One whole connection stack: connector, task manager, socket stage, TLS stage, HTTP stage. It owns them
/// all; they hold plain pointers to each other. One thread at a time. The stack never goes down from inside a
/// completion: a fatal error schedules this object as a task.
class ZephHttpClientSocketSyncConnection : private ZephSSLNotifierIf,
                                           public ZephSSLControlIf,
                                           private ZephTaskIf {
public:
    ZephHttpClientSocketSyncConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose);
    ~ZephHttpClientSocketSyncConnection() override;
    ZephHttpClientSocketSyncConnection(const ZephHttpClientSocketSyncConnection&) = delete;
    ZephHttpClientSocketSyncConnection& operator=(const ZephHttpClientSocketSyncConnection&) = delete;

    /// Takes an earlier stack down and builds a new one. Blocks while the name is resolved and the socket
    /// connects, at most the connect time-out for each address; a TLS handshake runs later, inside
    /// `DoPendingIO`.
    std::uint32_t Connect(const ZephSorrelConnectionParametersIf& params);
    void Disconnect();
    bool IsConnected();
    /// Gives back memory that is only needed during an exchange; for a connection that is likely to rest.
    void ReleaseIdleMemory() {
        m_Http.ReleaseIdleMemory();
        m_SSLIO.ReleaseIdleMemory();
    }

    ZephHttpClientConnection& GetHttpConnection() { return m_Http; }
    ZephSyncIOControllerIf& GetSyncIOController() { return m_IOManager; }

    /// Whether TLS was asked for: by the parameters, and since then by the server, which may change the
    /// protocol.
    bool IsSSLEnabled() override { return m_Parameters.GetUseSSL(); }
    void EnableSSL() override;
    void DisableSSL() override;

private:
    void OnSSLStopped() override {}
    void OnSSLFatalError() override { ScheduleDisconnect(); }
    void DoTask() override { Disconnect(); }

    void ScheduleDisconnect();
    void CancelScheduledDisconnect();
    std::uint32_t BuildStack();

    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    bool m_Verbose;
    ZephSocketConnector m_Connector;
    ZephIOTaskManager_Sync m_IOManager;
    ZephSocketIO m_SocketIO;
    ZephSSLIO m_SSLIO;
    std::unique_ptr<ZephSSLConnectionManagerIf> m_SSLManager;
    ZephHttpClientConnection m_Http;
    ZephSorrelConnectionParameters m_Parameters;
    bool m_DisconnectPending = false;
    ZephTerminatorAdapter m_Terminator;
};

}  // namespace OmbryZephCore
