#include "tests/Platform/SocketsLoopbackFixture.h"

#include <winsock2.h>
#include <ws2tcpip.h>

namespace Ombry::Tests {
namespace {

using namespace Platform;

class SocketsTest : public SocketsLoopbackTest {
protected:
    static int OptionOf(SocketHandle socket, int level, int name) {
        int value = 0;
        int length = sizeof value;
        EXPECT_EQ(
            getsockopt(static_cast<SOCKET>(socket), level, name, reinterpret_cast<char*>(&value), &length),
            0);
        return value;
    }
};

TEST_F(SocketsTest, NewSocketIsInheritedByNoChildAndSendsWithoutDelay) {
    for (const int family : {FamilyIPv4, FamilyIPv6}) {
        const auto made = sockets.Create(family, SocketTypeStream, ProtocolTcp);
        ASSERT_TRUE(made);
        const TestedSocket socket(*made);
        DWORD flags = 0;
        ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(*made), &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
        EXPECT_NE(OptionOf(socket, IPPROTO_TCP, TCP_NODELAY) & 0xFF, 0);
    }
}

TEST_F(SocketsTest, DatagramSocketIsMadeAsWell) {
    const auto made = sockets.Create(FamilyIPv4, SOCK_DGRAM, IPPROTO_UDP);
    ASSERT_TRUE(made);
    const TestedSocket socket(*made);
    EXPECT_EQ(OptionOf(socket, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
}

TEST_F(SocketsTest, ConnectIsInProgressInEitherMode) {
    const PeerSocket listener(BlockingSockets::Listen());
    for (const bool nonBlocking : {true, false}) {
        const TestedSocket client = NewSocket();
        ASSERT_TRUE(sockets.SetNonBlocking(client, nonBlocking));
        EXPECT_EQ(sockets.Connect(client, Loopback(BlockingSockets::PortOf(listener))).Error(),
                  WSAEWOULDBLOCK);
    }
}

TEST_F(SocketsTest, RefusedConnectShowsInTheExceptionSetWithTheSystemsNumber) {
    PeerSocket listener(BlockingSockets::Listen());
    const std::uint16_t port = BlockingSockets::PortOf(listener);
    listener.Close();
    const TestedSocket client = NewSocket();
    ASSERT_FALSE(sockets.Connect(client, Loopback(port)));
    SocketSet write = SetOf({client});
    SocketSet except = SetOf({client});
    EXPECT_EQ(sockets.Select(nullptr, &write, &except, Long).count, 1);
    EXPECT_TRUE(except.Contains(client));
    EXPECT_EQ(*sockets.GetSocketError(client), WSAECONNREFUSED);
}

TEST_F(SocketsTest, FailuresHaveTheSystemsNumbers) {
    const PeerSocket listener(BlockingSockets::Listen());
    const TestedSocket other = NewSocket();
    EXPECT_EQ(sockets.Bind(other, Loopback(BlockingSockets::PortOf(listener))).Error(), WSAEADDRINUSE);
    EXPECT_EQ(sockets.Create(9999, SocketTypeStream, ProtocolTcp).Error(), WSAEAFNOSUPPORT);
    EXPECT_EQ(sockets.Close(InvalidSocket).Error(), WSAENOTSOCK);
    SocketSet read = SetOf({InvalidSocket});
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 0).error, WSAENOTSOCK);
    EXPECT_EQ(sockets.GetAddressInfo(nullptr, nullptr, {}).Error(), WSAHOST_NOT_FOUND);
}

TEST_F(SocketsTest, AddressLongerThanAnyHasTheNumberOfABadOne) {
    AddressEntry entry = Loopback(1);
    entry.address.resize(sizeof(sockaddr_storage) + 1);
    const TestedSocket socket = NewSocket();
    EXPECT_EQ(sockets.Bind(socket, entry).Error(), WSAEFAULT);
    EXPECT_EQ(sockets.Connect(socket, entry).Error(), WSAEFAULT);
    EXPECT_EQ(sockets.NumericNameOf(entry, 46, 6).Error(), WSAEFAULT);
}

TEST_F(SocketsTest, VersionBeyondTheLibrarysIsAnsweredWithTheOneThatItHas) {
    const auto version = sockets.Startup(MAKEWORD(9, 9));
    ASSERT_TRUE(version);
    EXPECT_EQ(*version, MAKEWORD(2, 2));
    EXPECT_TRUE(sockets.Cleanup());
    EXPECT_EQ(sockets.Startup(0).Error(), WSAVERNOTSUPPORTED);
}

}  // namespace
}  // namespace Ombry::Tests
