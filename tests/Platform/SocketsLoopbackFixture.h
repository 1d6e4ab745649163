#pragma once

#include "Platform/ISockets.h"
#include "tests/Fakes/BlockingSockets.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// Owns a socket, of `ISockets` or of `BlockingSockets`.
template <void (*CloseSocket)(Platform::SocketHandle)>
class OwnedSocket {
public:
    explicit OwnedSocket(Platform::SocketHandle handle) : handle(handle) {}
    ~OwnedSocket() { Close(); }
    OwnedSocket(OwnedSocket&& other) noexcept
        : handle(std::exchange(other.handle, Platform::InvalidSocket)) {}
    OwnedSocket& operator=(OwnedSocket&&) = delete;
    operator Platform::SocketHandle() const { return handle; }
    void Close() {
        if (handle != Platform::InvalidSocket) CloseSocket(std::exchange(handle, Platform::InvalidSocket));
    }

private:
    Platform::SocketHandle handle;
};

inline void CloseByPlatform(Platform::SocketHandle socket) {
    EXPECT_TRUE(Platform::Production<Platform::ISockets>().Close(socket));
}

/// What is tested, and the other end, which is the system's own.
using TestedSocket = OwnedSocket<CloseByPlatform>;
using PeerSocket = OwnedSocket<BlockingSockets::Close>;

class SocketsLoopbackTest : public testing::Test {
protected:
    /// Longer than anything on one machine takes.
    static constexpr std::int64_t Long = 60'000;

    Platform::AddressEntry Loopback(std::uint16_t port) {
        const auto list = sockets.GetAddressInfo(
            "127.0.0.1", std::to_string(port).c_str(),
            {0, Platform::FamilyUnspecified, Platform::SocketTypeStream, Platform::ProtocolTcp});
        return list->front();
    }

    TestedSocket NewSocket() {
        const auto made =
            sockets.Create(Platform::FamilyIPv4, Platform::SocketTypeStream, Platform::ProtocolTcp);
        EXPECT_TRUE(made) << made.Error();
        return TestedSocket(made ? *made : Platform::InvalidSocket);
    }

    /// Begins to connect and waits until that has ended one way or the other; the value is the error of it.
    int Connect(Platform::SocketHandle client, std::uint16_t port) {
        EXPECT_TRUE(sockets.SetNonBlocking(client, true));
        const auto begun = sockets.Connect(client, Loopback(port));
        if (begun) return 0;
        if (begun.Error() != Platform::ErrorWouldBlock && begun.Error() != Platform::ErrorInProgress) {
            return begun.Error();
        }
        Platform::SocketSet write = SetOf({client});
        Platform::SocketSet except = SetOf({client});
        EXPECT_GE(sockets.Select(nullptr, &write, &except, Long).count, 1);
        return *sockets.GetSocketError(client);
    }

    struct Pair {
        TestedSocket client;
        PeerSocket server;
    };

    Pair Connected() {
        const PeerSocket listener(BlockingSockets::Listen());
        TestedSocket client = NewSocket();
        EXPECT_EQ(Connect(client, BlockingSockets::PortOf(listener)), 0);
        EXPECT_TRUE(sockets.SetNonBlocking(client, false));
        return {std::move(client), PeerSocket(BlockingSockets::Accept(listener))};
    }

    static Platform::SocketSet SetOf(std::initializer_list<Platform::SocketHandle> handles) {
        Platform::SocketSet set;
        for (const Platform::SocketHandle handle : handles)
            set.Add(handle);
        return set;
    }

    bool IsReadable(Platform::SocketHandle socket) {
        Platform::SocketSet read = SetOf({socket});
        return sockets.Select(&read, nullptr, nullptr, Long).count == 1 && read.Contains(socket);
    }

    Platform::ISockets& sockets = Platform::Production<Platform::ISockets>();
};

}  // namespace Ombry::Tests
