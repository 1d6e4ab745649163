#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace Ombry::Tests {

/// A server that takes connections, and says nothing.
class SilentPort {
public:
    SilentPort() : number(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(number, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(number, 8), 0);
        getsockname(number, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~SilentPort() { close(number); }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    std::string HostAndPort() const { return "127.0.0.1:" + std::to_string(port); }

private:
    const int number;
    int port = 0;
};

}  // namespace Ombry::Tests
