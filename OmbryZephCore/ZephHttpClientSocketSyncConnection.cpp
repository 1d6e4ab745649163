#include "OmbryZephCore/ZephHttpClientSocketSyncConnection.h"

#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSSLClientConnectionManagerInitOnDemand.h"

namespace OmbryZephCore {
namespace {

// Value of the Host header (RFC 9110, section 7.2). The port is always written, even the default one; an
// IPv6 zone means nothing to the peer and is left out.
std::string MakeHostValue(const std::string& host, std::uint16_t nPort) {
    std::string text;
    if (host.find(':') != std::string::npos && host.front() != '[') {
        text = "[" + host + "]";
    } else {
        text = host;
    }
    text += ":" + std::to_string(nPort);
    const std::size_t zone = text.rfind('%');
    const std::size_t bracket = text.rfind(']');
    if (zone != std::string::npos && bracket != std::string::npos && zone < bracket)
        text.erase(zone, bracket - zone);
    return text;
}

// All of the parameters, apart from each other whatever they hold: the texts come last, behind their
// lengths.
std::string MakeSessionScope(const ZephSorrelConnectionParameters& params) {
    const ZephCertificateValidation validation = params.GetCertificateValidation();
    const std::string host = params.GetHost(), bindAddress = params.GetBindAddress();
    std::string scope;
    for (const std::uint64_t number :
         {std::uint64_t{params.GetUseSSL()}, std::uint64_t{params.GetPort()},
          std::uint64_t{params.GetBindPort()}, std::uint64_t{params.GetConnectTimeout()},
          static_cast<std::uint64_t>(validation.m_Mode), std::uint64_t{host.size()},
          std::uint64_t{bindAddress.size()}}) {
        scope += std::to_string(number) + ' ';
    }
    return scope + host + bindAddress + validation.m_Certificate;
}

}  // namespace

ZephHttpClientSocketSyncConnection::ZephHttpClientSocketSyncConnection(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose)
    : m_Logger(std::move(logger)),
      m_Verbose(bVerbose),
      m_Connector(m_Logger),
      m_IOManager(m_Logger),
      m_SSLIO(m_Logger),
      m_Terminator([this] { ScheduleDisconnect(); }) {
    m_IOManager.SetVerbose(m_Verbose);
    m_SSLIO.SetVerbose(m_Verbose);
}

ZephHttpClientSocketSyncConnection::~ZephHttpClientSocketSyncConnection() {
    // The TLS stage gives its engine back to the manager, which the order of the members would delete first.
    Disconnect();
}

std::uint32_t ZephHttpClientSocketSyncConnection::Connect(const ZephSorrelConnectionParametersIf& params) {
    // The whole stack: a stage that stayed up would answer for the new socket.
    Disconnect();
    if (params.GetHost().empty()) return eRC_InvalidArgument;
    m_Parameters = params;
    const std::string bindAddress = m_Parameters.GetBindAddress();
    const std::uint32_t nResult = m_Connector.Connect(
        m_Parameters.GetHost().c_str(), m_Parameters.GetPort(), m_Parameters.GetConnectTimeout(),
        bindAddress.empty() ? nullptr : bindAddress.c_str(), m_Parameters.GetBindPort());
    if (nResult != eRC_Success) return nResult;
    return BuildStack();
}

std::uint32_t ZephHttpClientSocketSyncConnection::BuildStack() {
    std::uint32_t nResult =
        m_SocketIO.Initialize(m_Connector.GetSocket(), &m_IOManager, &m_IOManager, nullptr);
    if (nResult != eRC_Success) {
        m_Connector.Close();
        return nResult;
    }

    const ZephCertificateValidation validation = m_Parameters.GetCertificateValidation();
    ZephSSLSettings settings;
    settings.m_Role = ClientRole;
    settings.m_TargetName = m_Parameters.GetHost();
    settings.m_ValidationMode = validation.m_Mode;
    settings.m_Certificate = validation.m_Certificate;
    settings.m_SessionScope = MakeSessionScope(m_Parameters);
    auto manager = std::make_unique<ZephSSLClientConnectionManagerInitOnDemand>();
    manager->Configure(settings, m_Logger, m_Verbose);
    m_SSLManager = std::move(manager);

    nResult =
        m_SSLIO.Initialize(m_SSLManager.get(), &m_SocketIO, &m_IOManager, 0, this, &m_IOManager, nullptr);
    if (nResult != eRC_Success) {
        m_SocketIO.UnRegisterIOCompletionHandler();
        m_Connector.Close();
        m_SSLManager.reset();
        return nResult;
    }
    // A connection that was asked to be secret must never fall back to clear text, whatever the peer closes
    // or sends.
    m_SSLIO.SetClearTextGuard(m_Parameters.GetUseSSL());
    if (m_Parameters.GetUseSSL()) m_SSLIO.StartSSL();

    nResult = m_Http.Initialize(&m_SSLIO, &m_Terminator,
                                MakeHostValue(m_Parameters.GetHost(), m_Parameters.GetPort()).c_str(),
                                &m_IOManager, this);
    if (nResult != eRC_Success) {
        m_SSLIO.Terminate();
        m_SocketIO.UnRegisterIOCompletionHandler();
        m_Connector.Close();
        m_SSLManager.reset();
    }
    return nResult;
}

void ZephHttpClientSocketSyncConnection::Disconnect() {
    m_Http.Close();
    m_SSLIO.Terminate();
    // The HTTP stage, if it was open, has unregistered the socket through the TLS stage; if it was not, it
    // still stands.
    m_SocketIO.UnRegisterIOCompletionHandler();
    m_Connector.Close();
    m_SSLManager.reset();
    CancelScheduledDisconnect();
}

void ZephHttpClientSocketSyncConnection::CancelScheduledDisconnect() {
    if (!m_DisconnectPending) return;
    m_IOManager.CancelTask(this);
    m_DisconnectPending = false;
}

void ZephHttpClientSocketSyncConnection::ScheduleDisconnect() {
    if (m_DisconnectPending || !m_SSLManager) return;
    m_DisconnectPending = true;
    m_IOManager.ScheduleTask(this);
}

bool ZephHttpClientSocketSyncConnection::IsConnected() {
    return m_Connector.IsConnected() && m_Http.IsOpen();
}

void ZephHttpClientSocketSyncConnection::EnableSSL() {
    m_Parameters.SetUseSSL(true);
    m_SSLIO.StartSSL();
}

void ZephHttpClientSocketSyncConnection::DisableSSL() {
    m_Parameters.SetUseSSL(false);
    m_SSLIO.StopSSL(true);
}

}  // namespace OmbryZephCore
