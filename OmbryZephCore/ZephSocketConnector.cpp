#include "OmbryZephCore/ZephSocketConnector.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <locale>
#include <sstream>
#include <utility>
#include <vector>

namespace OmbryZephCore {

using Ombry::LibraryLogger::ILogger;
using Ombry::LibraryLogger::LogCall;
using Ombry::LibraryLogger::Place;
using Ombry::Platform::AddressEntry;
using Ombry::Platform::AddressHints;
using Ombry::Platform::InvalidSocket;
using Ombry::Platform::SocketHandle;
using Ombry::Platform::Sockets;

namespace {

constexpr std::uint16_t SocketLibraryVersion = 2;

// Room for the longest address without a zone, and for five digits, with their terminators.
constexpr std::size_t HostTextRoom = 46;
constexpr std::size_t ServiceTextRoom = 6;

std::uint32_t InitializeWinsock(const std::shared_ptr<ILogger>& logger) {
    const auto started = Sockets().Startup(SocketLibraryVersion);
    if (!started) {
        LogCall(logger, "OmbryZephCore::InitializeWinsock", 3, "WSAStartup failed with error ",
                started.Error());
        return static_cast<std::uint32_t>(started.Error());
    }
    if (*started != SocketLibraryVersion) {
        LogCall(logger, "OmbryZephCore::InitializeWinsock", 3, "Incorrect winsock version ", *started,
                " was returned.  Last error = ", started.Error());
        (void)Sockets().Cleanup();
        // It may be 0: the connect then goes on as if the library had started.
        return static_cast<std::uint32_t>(started.Error());
    }
    return eRC_Success;
}

// The reference that `InitializeWinsock` took, for as long as no socket bears it.
class LibraryReference {
public:
    LibraryReference() = default;
    ~LibraryReference() {
        if (m_Held) (void)Sockets().Cleanup();
    }
    LibraryReference(const LibraryReference&) = delete;
    LibraryReference& operator=(const LibraryReference&) = delete;

    void LeaveToTheSocket() { m_Held = false; }

private:
    bool m_Held = true;
};

std::string DescribeAddresses(const char* pHost, std::uint16_t nPort,
                              const std::vector<AddressEntry>& addresses) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "getaddrinfo for (" << pHost << ", " << nPort << ") succeeded.  Got:";
    for (const AddressEntry& entry : addresses) {
        const auto name = Sockets().NumericNameOf(entry, HostTextRoom, ServiceTextRoom);
        text << "\n(ai_flags=" << entry.flags << ", ai_family=" << entry.family
             << ", ai_socktype=" << entry.socketType << ", ai_protocol=" << entry.protocol
             << ", ai_addrlen=" << entry.address.size()
             << ", ai_canonname=" << entry.canonicalName.value_or("(null)")
             << ", ai_addr=" << (name ? name->host : "") << " " << (name ? name->service : "") << ")";
    }
    return text.str();
}

std::uint32_t ResolveAddresses(const char* pHost, std::uint16_t nPort, std::vector<AddressEntry>& result,
                               const std::shared_ptr<ILogger>& logger) {
    constexpr const char* pFunction = "OmbryZephCore::ResolveAddresses";
    AddressHints hints;
    hints.family = Ombry::Platform::FamilyUnspecified;
    hints.socketType = Ombry::Platform::SocketTypeStream;
    hints.protocol = Ombry::Platform::ProtocolTcp;
    auto resolved = Sockets().GetAddressInfo(pHost, std::to_string(nPort).c_str(), hints);
    if (!resolved) {
        LogCall(logger, pFunction, 3, "getaddrinfo for (", pHost, ", ", nPort, ") failed with error ",
                resolved.Error());
        return eRC_ResolveFailed;
    }
    if (resolved->empty()) {
        LogCall(logger, pFunction, 3, "getaddrinfo for (", pHost, ", ", nPort,
                ") succeeded but pAddrInfo is NULL.");
        return eRC_ResolveFailed;
    }
    LogCall(logger, pFunction, 0, [&] { return DescribeAddresses(pHost, nPort, *resolved); });
    result = std::move(*resolved);
    return eRC_Success;
}

// One attempt at one address. A step that fails has closed the socket; one that nobody took is closed at the
// end.
class ZephConnectSocketHelper {
public:
    ZephConnectSocketHelper(std::shared_ptr<ILogger> logger, const AddressEntry& address,
                            const char* pBindAddress, std::uint16_t nBindPort)
        : m_Logger(std::move(logger)),
          m_Address(&address),
          m_BindAddress(pBindAddress),
          m_BindPort(nBindPort) {}
    ~ZephConnectSocketHelper() { CloseSocket(); }
    ZephConnectSocketHelper(const ZephConnectSocketHelper&) = delete;
    ZephConnectSocketHelper& operator=(const ZephConnectSocketHelper&) = delete;

    bool CreateSocket();
    bool BindIfNecessary();
    bool SetNonBlockedMode(bool bNonBlocked);
    bool ConnectSocket();
    bool WaitForConnect(std::uint32_t nTimeoutSeconds);
    const std::string& GetAddressText();

    // From now on the socket is the caller's.
    SocketHandle ReleaseSocket() { return std::exchange(m_Socket, InvalidSocket); }

private:
    bool CheckConnected(bool bWritable);
    void CloseSocket();

    // Logs a failure of a connect, the address among the parts, and closes the socket.
    template <class... Parts>
    bool FailConnect(const Place& place, const char* pBefore, const Parts&... after) {
        return Fail(
            place, pBefore, [this]() -> const std::string& { return GetAddressText(); }, after...);
    }

    template <class... Parts>
    bool Fail(const Place& place, const Parts&... parts) {
        LogCall(m_Logger, place, 3, parts...);
        CloseSocket();
        return false;
    }

    std::shared_ptr<ILogger> m_Logger;
    SocketHandle m_Socket = InvalidSocket;
    int m_LastError = 0;
    const AddressEntry* m_Address;
    const char* m_BindAddress;
    std::uint16_t m_BindPort;
    bool m_Connected = false;
    std::string m_AddressText;
};

bool ZephConnectSocketHelper::CreateSocket() {
    const auto created = Sockets().Create(m_Address->family, m_Address->socketType, m_Address->protocol);
    if (!created) {
        m_LastError = created.Error();
        LogCall(m_Logger, "OmbryZephCore::ZephConnectSocketHelper::CreateSocket", 4,
                "Failed to create socket.  Last error = ", m_LastError);
        return false;
    }
    m_Socket = *created;
    return true;
}

bool ZephConnectSocketHelper::BindIfNecessary() {
    constexpr const char* pFunction = "OmbryZephCore::ZephConnectSocketHelper::BindIfNecessary";
    if (!m_BindAddress && m_BindPort == 0) return true;

    AddressHints hints;
    hints.family = m_Address->family;
    hints.socketType = m_Address->socketType;
    hints.protocol = m_Address->protocol;
    // A port without an address is resolved without a host, which gives the loopback address.
    const auto resolved = Sockets().GetAddressInfo(m_BindAddress, std::to_string(m_BindPort).c_str(), hints);
    if (!resolved) return Fail(pFunction, "getaddrinfo failed with error ", resolved.Error());
    if (resolved->empty()) return Fail(pFunction, "getaddrinfo succeeded but pAddrInfo is NULL");

    const auto bound = Sockets().Bind(m_Socket, resolved->front());
    if (!bound) {
        m_LastError = bound.Error();
        return Fail(pFunction, "Failed to bind socket.  Last error = ", m_LastError);
    }
    return true;
}

bool ZephConnectSocketHelper::SetNonBlockedMode(bool bNonBlocked) {
    const auto set = Sockets().SetNonBlocking(m_Socket, bNonBlocked);
    if (set) return true;
    m_LastError = set.Error();
    return Fail("OmbryZephCore::ZephConnectSocketHelper::SetNonBlockedMode",
                "Failed to set socket non-blocked to ", bNonBlocked, ".  Last error = ", m_LastError);
}

bool ZephConnectSocketHelper::ConnectSocket() {
    const auto connected = Sockets().Connect(m_Socket, *m_Address);
    if (connected) {
        m_Connected = true;
        return true;
    }
    m_LastError = connected.Error();
    if (m_LastError == Ombry::Platform::ErrorWouldBlock || m_LastError == Ombry::Platform::ErrorInProgress) {
        return true;
    }
    return FailConnect("OmbryZephCore::ZephConnectSocketHelper::ConnectSocket", "Failed to connect to ",
                       ".  Last error = ", m_LastError);
}

bool ZephConnectSocketHelper::WaitForConnect(std::uint32_t nTimeoutSeconds) {
    constexpr const char* pFunction = "OmbryZephCore::ZephConnectSocketHelper::WaitForConnect";
    if (m_Connected) return true;
    for (;;) {
        Ombry::Platform::SocketSet write;
        Ombry::Platform::SocketSet except;
        write.Add(m_Socket);
        except.Add(m_Socket);
        const auto ready = Sockets().Select(nullptr, &write, &except, std::int64_t{nTimeoutSeconds} * 1000);
        if (ready.count == 0) {
            m_LastError = Ombry::Platform::ErrorTimedOut;
            return FailConnect(pFunction, "Timed out attempting to connect to ", ".");
        }
        if (ready.count == -1) {
            m_LastError = ready.error;
            // A plain number, whatever the platform calls it; the wait begins anew with its full time.
            if (m_LastError == 4) continue;
            return FailConnect(pFunction, "Failed to connect to ",
                               ".  select failed.  Last error = ", m_LastError);
        }
        if (!write.Contains(m_Socket) && !except.Contains(m_Socket)) {
            return Fail(pFunction,
                        "select() succeeded but the socket is not writeable. This should not be possible. "
                        "Last error = ",
                        ready.error);
        }
        return CheckConnected(write.Contains(m_Socket));
    }
}

// Reading the error of the socket clears it, so it is read here and nowhere else.
bool ZephConnectSocketHelper::CheckConnected(bool bWritable) {
    constexpr const char* pFunction = "OmbryZephCore::ZephConnectSocketHelper::WaitForConnect";
    const auto error = Sockets().GetSocketError(m_Socket);
    if (!error) {
        m_LastError = error.Error();
        return Fail(pFunction, "getsockopt() failed to get SO_ERROR.  Last error = ", m_LastError);
    }
    m_LastError = *error;
    if (!bWritable || m_LastError != 0) {
        return Fail(pFunction, "getsockopt() returned SO_ERROR ", m_LastError);
    }
    m_Connected = true;
    return true;
}

const std::string& ZephConnectSocketHelper::GetAddressText() {
    if (!m_AddressText.empty()) return m_AddressText;
    const auto name = Sockets().NumericNameOf(*m_Address, HostTextRoom, ServiceTextRoom);
    if (!name) return m_AddressText;
    if (m_Address->family == Ombry::Platform::FamilyIPv4) {
        m_AddressText = name->host + ":" + name->service;
    } else if (m_Address->family == Ombry::Platform::FamilyIPv6) {
        m_AddressText = "[" + name->host + "]:" + name->service;
    }
    return m_AddressText;
}

void ZephConnectSocketHelper::CloseSocket() {
    const SocketHandle h = ReleaseSocket();
    if (h != InvalidSocket) (void)Sockets().Close(h);
}

}  // namespace

ZephSocketConnector::ZephSocketConnector(std::shared_ptr<ILogger> logger) : m_Logger(std::move(logger)) {}

ZephSocketConnector::~ZephSocketConnector() {
    Close();
}

std::uint32_t ZephSocketConnector::Connect(const char* pHost, std::uint16_t nPort,
                                           std::uint32_t nTimeoutSeconds, const char* pBindAddress,
                                           std::uint16_t nBindPort) {
    Close();
    std::uint32_t nResult = InitializeWinsock(m_Logger);
    if (nResult != eRC_Success) return nResult;
    LibraryReference library;

    std::vector<AddressEntry> addresses;
    nResult = ResolveAddresses(pHost, nPort, addresses, m_Logger);
    if (nResult != eRC_Success) return nResult;

    for (const AddressEntry& address : addresses) {
        ZephConnectSocketHelper helper(m_Logger, address, pBindAddress, nBindPort);
        if (helper.CreateSocket() && helper.BindIfNecessary() && helper.SetNonBlockedMode(true) &&
            helper.ConnectSocket() && helper.WaitForConnect(nTimeoutSeconds) &&
            helper.SetNonBlockedMode(false)) {
            m_PeerAddress = helper.GetAddressText();
            m_Socket = helper.ReleaseSocket();
            library.LeaveToTheSocket();
            return eRC_Success;
        }
    }

    LogCall(m_Logger, "OmbryZephCore::ZephSocketConnector::Connect", 3, "Failed to connect to server '",
            pHost, ":", nPort, "'");
    return eRC_Fail;
}

void ZephSocketConnector::Close() {
    if (!IsConnected()) return;
    (void)Sockets().Close(std::exchange(m_Socket, InvalidSocket));
    m_PeerAddress.clear();
    (void)Sockets().Cleanup();
}

}  // namespace OmbryZephCore
