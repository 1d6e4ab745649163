#pragma once

#include "Platform/ISockets.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// Owns a socket handle.
class Handle {
public:
    explicit Handle(Platform::SocketHandle number) : number(number) {}
    ~Handle() { Close(); }
    Handle(Handle&& other) noexcept : number(std::exchange(other.number, Platform::InvalidSocket)) {}
    Handle& operator=(Handle&&) = delete;
    operator Platform::SocketHandle() const { return number; }
    void Close() {
        if (number >= 0) close(static_cast<int>(std::exchange(number, Platform::InvalidSocket)));
    }

private:
    Platform::SocketHandle number;
};

class SocketsTest : public testing::Test {
protected:
    static Platform::AddressEntry Loopback(std::uint16_t port) {
        const auto list = Platform::Production<Platform::ISockets>().GetAddressInfo(
            "127.0.0.1", std::to_string(port).c_str(),
            {0, Platform::FamilyUnspecified, Platform::SocketTypeStream, Platform::ProtocolTcp});
        return list->front();
    }

    Handle NewSocket() {
        return Handle(
            *sockets.Create(Platform::FamilyIPv4, Platform::SocketTypeStream, Platform::ProtocolTcp));
    }

    /// A socket that listens on a port of the system's choice.
    Handle Listen() {
        Handle listener = NewSocket();
        EXPECT_TRUE(sockets.Bind(listener, Loopback(0)));
        EXPECT_EQ(listen(static_cast<int>(Platform::SocketHandle(listener)), 8), 0);
        return listener;
    }

    static std::uint16_t PortOf(Platform::SocketHandle socket) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    struct Pair {
        Handle client;
        Handle server;
    };

    Pair Connected() {
        Handle listener = Listen();
        Handle client = NewSocket();
        EXPECT_TRUE(sockets.Connect(client, Loopback(PortOf(listener))));
        Handle server(accept(static_cast<int>(Platform::SocketHandle(listener)), nullptr, nullptr));
        return {std::move(client), std::move(server)};
    }

    static Platform::SocketSet SetOf(std::initializer_list<Platform::SocketHandle> handles) {
        Platform::SocketSet set;
        for (const Platform::SocketHandle handle : handles)
            set.Add(handle);
        return set;
    }

    static std::vector<Platform::SocketHandle> Members(const Platform::SocketSet& set) {
        return {set.begin(), set.end()};
    }

    Platform::ISockets& sockets = Platform::Production<Platform::ISockets>();
};

}  // namespace Ombry::Tests
