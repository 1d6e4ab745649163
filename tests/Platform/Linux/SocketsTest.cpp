#include "Platform/ISockets.h"
#include "tests/Platform/Linux/SocketsFixture.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;

// Creation.

TEST_F(SocketsTest, NewSocketIsCloseOnExecAndSendsWithoutDelay) {
    for (const int family : {FamilyIPv4, FamilyIPv6}) {
        const auto created = sockets.Create(family, SocketTypeStream, ProtocolTcp);
        ASSERT_TRUE(created);
        const Handle socket(*created);
        const int number = static_cast<int>(*created);
        EXPECT_NE(fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
        int noDelay = 0;
        socklen_t length = sizeof noDelay;
        ASSERT_EQ(getsockopt(number, IPPROTO_TCP, TCP_NODELAY, &noDelay, &length), 0);
        EXPECT_EQ(noDelay, 1);
        EXPECT_EQ(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
    }
}

TEST_F(SocketsTest, CreationThatTheSystemRefusesGivesItsNumber) {
    EXPECT_EQ(sockets.Create(9999, SocketTypeStream, ProtocolTcp).Error(), EAFNOSUPPORT);
    SystemCalls calls;
    calls.Fail("socket", EMFILE);
    EXPECT_EQ(sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp).Error(), EMFILE);
}

TEST_F(SocketsTest, SocketThatRefusesNoDelayIsStillCreated) {
    SystemCalls calls;
    calls.Fail("setsockopt", EOPNOTSUPP);
    const auto created = sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp);
    ASSERT_TRUE(created);
    const Handle socket(*created);
    EXPECT_THAT(calls.Names(), ElementsAre("socket", "setsockopt"));
}

TEST_F(SocketsTest, SocketOfAnotherKindIsNotAskedForNoDelay) {
    for (const auto& [family, type] : {std::pair{FamilyIPv4, SOCK_DGRAM}, {AF_UNIX, SOCK_STREAM}}) {
        SystemCalls calls;
        const auto created = sockets.Create(family, type, 0);
        ASSERT_TRUE(created);
        const Handle socket(*created);
        EXPECT_THAT(calls.Names(), ElementsAre("socket"));
    }
}

TEST_F(SocketsTest, ClosedSocketCannotBeUsedAgain) {
    const auto created = sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp);
    ASSERT_TRUE(created);
    EXPECT_TRUE(sockets.Close(*created));
    EXPECT_EQ(sockets.Close(*created).Error(), EBADF);
    EXPECT_EQ(sockets.SetNonBlocking(*created, true).Error(), EBADF);
    EXPECT_EQ(sockets.GetSocketError(*created).Error(), EBADF);
    EXPECT_EQ(sockets.Bind(*created, Loopback(0)).Error(), EBADF);
    EXPECT_EQ(sockets.Connect(*created, Loopback(1)).Error(), EBADF);
    char byte = 0;
    EXPECT_EQ(sockets.Receive(*created, &byte, 1).error, EBADF);
    EXPECT_EQ(sockets.Send(*created, &byte, 1).count, -1);
}

TEST_F(SocketsTest, InvalidHandleIsRefusedByAllOperations) {
    for (const SocketHandle handle : {InvalidSocket, SocketHandle{-5}, SocketHandle{1} << 40}) {
        EXPECT_EQ(sockets.Close(handle).Error(), EBADF);
        EXPECT_EQ(sockets.GetSocketError(handle).Error(), EBADF);
    }
}

TEST_F(SocketsTest, InterruptedCloseIsNotRepeated) {
    const auto created = sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp);
    SystemCalls calls;
    calls.Fail("close", EINTR);
    EXPECT_TRUE(sockets.Close(*created));
    EXPECT_EQ(calls.Count("close"), 1u);
}

TEST_F(SocketsTest, NonBlockingModeIsSwitchedOnAndOff) {
    const Handle socket = NewSocket();
    const int number = static_cast<int>(SocketHandle(socket));
    EXPECT_TRUE(sockets.SetNonBlocking(socket, true));
    EXPECT_NE(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(sockets.SetNonBlocking(socket, false));
    EXPECT_EQ(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(SocketsTest, BindToPortInUseGivesTheSystemsNumber) {
    const Handle listener = Listen();
    const Handle other = NewSocket();
    EXPECT_EQ(sockets.Bind(other, Loopback(PortOf(listener))).Error(), EADDRINUSE);
}

TEST_F(SocketsTest, AddressLongerThanAnyIsRefused) {
    AddressEntry entry = Loopback(1);
    entry.address.resize(sizeof(sockaddr_storage) + 1);
    const Handle socket = NewSocket();
    EXPECT_EQ(sockets.Bind(socket, entry).Error(), EINVAL);
    EXPECT_EQ(sockets.Connect(socket, entry).Error(), EINVAL);
    EXPECT_FALSE(sockets.NumericNameOf(entry, 46, 6));
}

// Connecting.

TEST_F(SocketsTest, InterruptedConnectIsInProgress) {
    const Handle client = NewSocket();
    SystemCalls calls;
    calls.Fail("connect", EINTR);
    EXPECT_EQ(sockets.Connect(client, Loopback(1)).Error(), ErrorInProgress);
    EXPECT_EQ(calls.Count("connect"), 1u);
}

TEST_F(SocketsTest, OtherNumbersOfConnectStayTheSystemsOwn) {
    const Handle client = NewSocket();
    for (const auto& [error, expected] : std::map<int, int>{{EAGAIN, 10035},
                                                            {EINPROGRESS, 10036},
                                                            {ECONNREFUSED, ECONNREFUSED},
                                                            {ENETUNREACH, ENETUNREACH},
                                                            {ETIMEDOUT, ETIMEDOUT}}) {
        SystemCalls calls;
        calls.Fail("connect", error);
        EXPECT_EQ(sockets.Connect(client, Loopback(1)).Error(), expected);
    }
}

TEST_F(SocketsTest, RefusedConnectShowsInWriteSetAndItsErrorIsReadOnce) {
    Handle listener = Listen();
    const std::uint16_t port = PortOf(listener);
    listener.Close();
    const Handle client = NewSocket();
    ASSERT_TRUE(sockets.SetNonBlocking(client, true));
    EXPECT_EQ(sockets.Connect(client, Loopback(port)).Error(), ErrorInProgress);
    SocketSet write = SetOf({client});
    SocketSet except = SetOf({client});
    EXPECT_EQ(sockets.Select(nullptr, &write, &except, 5000).count, 1);
    EXPECT_THAT(Members(write), ElementsAre(SocketHandle(client)));
    EXPECT_EQ(except.Count(), 0u);
    EXPECT_EQ(*sockets.GetSocketError(client), ECONNREFUSED);
    EXPECT_EQ(*sockets.GetSocketError(client), 0);
}

// Waiting.

TEST_F(SocketsTest, OnlyBytesThatMoreFollowMayBeHeldBack) {
    const Pair pair = Connected();
    SystemCalls calls;
    EXPECT_EQ(sockets.Send(pair.client, "head", 4, true).count, 4);
    EXPECT_EQ(sockets.Send(pair.client, "body", 4).count, 4);
    ASSERT_EQ(calls.Count("send"), 2u);
    EXPECT_EQ(calls.Calls()[0].argument, MSG_DONTWAIT | MSG_NOSIGNAL | MSG_MORE);
    EXPECT_EQ(calls.Calls()[1].argument, MSG_DONTWAIT | MSG_NOSIGNAL);
    std::string buffer(8, '.');
    EXPECT_EQ(recv(static_cast<int>(SocketHandle(pair.server)), buffer.data(), 8, MSG_WAITALL), 8);
    EXPECT_EQ(buffer, "headbody");
}

TEST_F(SocketsTest, SendToClosedPeerFailsWithoutSignal) {
    Pair pair = Connected();
    pair.server.Close();
    TransferResult sent;
    while ((sent = sockets.Send(pair.client, "x", 1)).count == 1) {
        SocketSet read = SetOf({pair.client});
        sockets.Select(&read, nullptr, nullptr, 5000);
    }
    EXPECT_EQ(sent.count, -1);
    EXPECT_TRUE(sent.error == EPIPE || sent.error == ECONNRESET) << sent.error;
    EXPECT_EQ(sockets.Send(pair.client, "x", 1).error, EPIPE);
}

TEST_F(SocketsTest, InterruptedTransfersAreRepeated) {
    const Pair pair = Connected();
    char byte = 'x';
    {
        SystemCalls calls;
        calls.Fail("send", EINTR, 2);
        EXPECT_EQ(sockets.Send(pair.client, &byte, 1).count, 1);
        EXPECT_EQ(calls.Count("send"), 3u);
    }
    SocketSet read = SetOf({pair.server});
    ASSERT_EQ(sockets.Select(&read, nullptr, nullptr, 5000).count, 1);
    SystemCalls calls;
    calls.Fail("recv", EINTR, 2);
    EXPECT_EQ(sockets.Receive(pair.server, &byte, 1).count, 1);
    EXPECT_EQ(calls.Count("recv"), 3u);
}

TEST_F(SocketsTest, TransferIsOneSystemCall) {
    const Pair pair = Connected();
    SystemCalls calls;
    char byte = 'x';
    EXPECT_EQ(sockets.Send(pair.client, &byte, 1).count, 1);
    EXPECT_EQ(sockets.Receive(pair.client, &byte, 1).error, ErrorWouldBlock);
    EXPECT_THAT(calls.Names(), ElementsAre("send", "recv"));
    EXPECT_EQ(calls.Calls()[0].argument, MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(calls.Calls()[1].argument, MSG_DONTWAIT);
}

// Names.

TEST_F(SocketsTest, NumericAddressesResolveToTheirBytes) {
    const AddressHints hints{0, FamilyUnspecified, SocketTypeStream, ProtocolTcp};
    const auto four = sockets.GetAddressInfo("127.0.0.1", "8181", hints);
    ASSERT_TRUE(four);
    ASSERT_EQ(four->size(), 1u);
    EXPECT_EQ(four->front().family, AF_INET);
    EXPECT_EQ(four->front().socketType, SOCK_STREAM);
    EXPECT_EQ(four->front().protocol, IPPROTO_TCP);
    EXPECT_EQ(four->front().address.size(), sizeof(sockaddr_in));
    EXPECT_EQ(four->front().canonicalName, std::nullopt);

    const auto six = sockets.GetAddressInfo("::1", "443", hints);
    ASSERT_TRUE(six);
    EXPECT_EQ(six->front().family, AF_INET6);
    EXPECT_EQ(six->front().address.size(), sizeof(sockaddr_in6));
}

TEST_F(SocketsTest, CanonicalNameIsCopiedWhenAskedFor) {
    const auto list = sockets.GetAddressInfo("127.0.0.1", nullptr,
                                             {AI_CANONNAME, FamilyIPv4, SocketTypeStream, ProtocolTcp});
    ASSERT_TRUE(list);
    EXPECT_EQ(list->front().canonicalName, "127.0.0.1");
    EXPECT_EQ(list->front().flags, AI_CANONNAME);
}

TEST_F(SocketsTest, HintsOfTypeAndProtocolLimitTheEntries) {
    const auto byType = sockets.GetAddressInfo("127.0.0.1", nullptr, {0, FamilyIPv4, SOCK_DGRAM, 0});
    ASSERT_TRUE(byType);
    for (const AddressEntry& entry : *byType)
        EXPECT_EQ(entry.socketType, SOCK_DGRAM);
    const auto byProtocol = sockets.GetAddressInfo("127.0.0.1", nullptr, {0, FamilyIPv4, 0, ProtocolTcp});
    ASSERT_TRUE(byProtocol);
    ASSERT_EQ(byProtocol->size(), 1u);
    EXPECT_EQ(byProtocol->front().protocol, IPPROTO_TCP);
}

TEST_F(SocketsTest, ResolverFailuresKeepTheResolversNumbers) {
    const AddressHints numeric{AI_NUMERICHOST, FamilyUnspecified, SocketTypeStream, ProtocolTcp};
    EXPECT_EQ(sockets.GetAddressInfo("no-number", "80", numeric).Error(), EAI_NONAME);
    EXPECT_EQ(sockets.GetAddressInfo(nullptr, nullptr, numeric).Error(), EAI_NONAME);
    EXPECT_EQ(sockets.GetAddressInfo("127.0.0.1", "80", {0, 9999, SocketTypeStream, ProtocolTcp}).Error(),
              EAI_FAMILY);
}

TEST_F(SocketsTest, NameIsNumericAndMustFitWithItsTerminator) {
    const AddressEntry address = Loopback(8181);
    const auto name = sockets.NumericNameOf(address, 10, 5);
    ASSERT_TRUE(name);
    EXPECT_EQ(name->host, "127.0.0.1");
    EXPECT_EQ(name->service, "8181");
    EXPECT_EQ(sockets.NumericNameOf(address, 9, 5).Error(), EAI_OVERFLOW);
    EXPECT_EQ(sockets.NumericNameOf(address, 10, 4).Error(), EAI_OVERFLOW);
}

TEST_F(SocketsTest, ConstantsAreTheSystemsOwn) {
    EXPECT_EQ(FamilyUnspecified, AF_UNSPEC);
    EXPECT_EQ(FamilyIPv4, AF_INET);
    EXPECT_EQ(FamilyIPv6, AF_INET6);
    EXPECT_EQ(SocketTypeStream, SOCK_STREAM);
    EXPECT_EQ(ProtocolTcp, IPPROTO_TCP);
}

}  // namespace
}  // namespace Ombry::Tests
