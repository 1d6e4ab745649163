#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// A port that the system picked and picks for nobody else while this lives. Servers that set SO_REUSEADDR
/// can listen on it, one after the other, since the socket that holds it never listens.
class HeldPort {
public:
    HeldPort() : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        sockaddr_in address{};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const pAddress = reinterpret_cast<sockaddr*>(&address);
        if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
            bind(descriptor, pAddress, length) != 0 || getsockname(descriptor, pAddress, &length) != 0) {
            throw std::runtime_error("cannot hold a port");
        }
        number = ntohs(address.sin_port);
    }
    ~HeldPort() { close(descriptor); }
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;

    std::uint16_t Port() const { return number; }
    std::string Text() const { return std::to_string(number); }

private:
    const int descriptor;
    std::uint16_t number = 0;
};

/// The address of a server that refuses connections.
inline std::string RefusingUrl() {
    static const HeldPort port;
    return "http://127.0.0.1:" + port.Text();
}

}  // namespace Ombry::Tests
