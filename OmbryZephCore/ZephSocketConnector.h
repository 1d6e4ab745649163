#pragma once

#include "LibraryLogger/ILogger.h"
#include "Platform/ISockets.h"

#include <memory>
#include <mutex>
#include <string>

namespace OmbryZephCore {

/// Turns a host name and a port into one connected TCP socket, and owns it. One thread at a time.
class ZephSocketConnector {
public:
    explicit ZephSocketConnector(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephSocketConnector();
    ZephSocketConnector(const ZephSocketConnector&) = delete;
    ZephSocketConnector& operator=(const ZephSocketConnector&) = delete;

    /// Tries the addresses of the host one after the other, in the resolver's order, and keeps the first that
    /// connects; the socket is then blocking. An earlier socket is closed first. Blocks without a look at any
    /// token: each address may take `nTimeoutSeconds`, and the resolver takes what it takes. `pBindAddress`
    /// may be null. Returns 0, `eRC_ResolveFailed`, `eRC_Fail` if every address failed (the log tells why),
    /// or the platform's number if its socket library does not start.
    std::uint32_t Connect(const char* pHost, std::uint16_t nPort, std::uint32_t nTimeoutSeconds,
                          const char* pBindAddress, std::uint16_t nBindPort);

    void Close();
    bool IsConnected() const { return m_Socket != Ombry::Platform::InvalidSocket; }
    /// Stays this object's.
    Ombry::Platform::SocketHandle GetSocket() const { return m_Socket; }
    /// "192.0.2.1:443" or "[2001:db8::1]:443"; empty if there is no peer.
    std::string GetPeerAddress() const { return m_PeerAddress; }

private:
    Ombry::Platform::SocketHandle m_Socket = Ombry::Platform::InvalidSocket;
    std::string m_PeerAddress;
    [[maybe_unused]] std::mutex m_Mutex;  // taken by nobody: a connector belongs to one stack, on one thread
    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
};

}  // namespace OmbryZephCore
