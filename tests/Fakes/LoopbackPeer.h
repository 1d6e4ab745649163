#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace Ombry::Tests {

/// The other end of a real connection on loopback, in the system's own calls, so that nothing under test
/// serves both sides. Sends and receives block.
class LoopbackPeer {
public:
    explicit LoopbackPeer(int descriptor) : descriptor(descriptor) {}
    ~LoopbackPeer() { Close(); }
    LoopbackPeer(LoopbackPeer&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    LoopbackPeer& operator=(LoopbackPeer&&) = delete;

    bool Send(const std::string& bytes) {
        return send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }

    /// Exactly this many bytes, or fewer if the stream ends.
    std::string Receive(std::size_t count) {
        std::string bytes(count, '\0');
        const ssize_t received = recv(descriptor, bytes.data(), count, MSG_WAITALL);
        bytes.resize(received < 0 ? 0 : static_cast<std::size_t>(received));
        return bytes;
    }

    /// Numeric address of the side under test.
    std::string RemoteAddress() {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        char text[INET_ADDRSTRLEN] = "";
        getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
        return text;
    }

    void Close() {
        if (descriptor >= 0) close(std::exchange(descriptor, -1));
    }

    /// Closes with a reset.
    void Reset() {
        const linger now{1, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        Close();
    }

private:
    int descriptor;
};

/// Listens on loopback, on a port that the system picks. Connections wait in the backlog until `Accept`, so a
/// test needs no thread.
class LoopbackListener {
public:
    explicit LoopbackListener(int family = AF_INET)
        : descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_storage address{};
        socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        address.ss_family = static_cast<sa_family_t>(family);
        if (family == AF_INET) {
            reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        } else {
            reinterpret_cast<sockaddr_in6&>(address).sin6_addr = in6addr_loopback;
        }
        if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            listen(descriptor, 16) != 0 ||
            getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            return;
        }
        port = ntohs(family == AF_INET ? reinterpret_cast<sockaddr_in&>(address).sin_port
                                       : reinterpret_cast<sockaddr_in6&>(address).sin6_port);
    }
    ~LoopbackListener() {
        if (descriptor >= 0) close(descriptor);
    }
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    /// 0 if this machine has no such loopback address.
    std::uint16_t Port() const { return port; }

    LoopbackPeer Accept() { return LoopbackPeer(accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC)); }

private:
    const int descriptor;
    std::uint16_t port = 0;
};

}  // namespace Ombry::Tests
