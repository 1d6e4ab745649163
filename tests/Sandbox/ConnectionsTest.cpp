#include "Sandbox/Connections.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace Ombry::Tests {
namespace {

/// A connection whose one end is this process's own server side.
struct Connection {
    explicit Connection(LoopbackListener& listener, int family = AF_INET)
        : descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)), client(descriptor) {
        sockaddr_storage address{};
        socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        address.ss_family = static_cast<sa_family_t>(family);
        // The port stands at the same place in both kinds of addresses, and so does it below.
        auto& port = reinterpret_cast<sockaddr_in&>(address).sin_port;
        port = htons(listener.Port());
        if (family == AF_INET) {
            reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        } else {
            reinterpret_cast<sockaddr_in6&>(address).sin6_addr = in6addr_loopback;
        }
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), length), 0);
        server.emplace(listener.Accept());
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length), 0);
        request.remote_addr = family == AF_INET ? "127.0.0.1" : "::1";
        request.remote_port = ntohs(port);
    }

    const int descriptor;
    LoopbackPeer client;
    std::optional<LoopbackPeer> server;
    httplib::Request request;  ///< as the service sees one of this client
};

TEST(SandboxConnectionsTest, EachRequestFindsItsOwnConnection) {
    LoopbackListener listener;
    Connection one(listener), other(listener);
    const int found = Sandbox::FindConnection(one.request);
    EXPECT_GE(found, 3);
    EXPECT_NE(found, one.descriptor);
    EXPECT_NE(found, Sandbox::FindConnection(other.request));
    httplib::Request foreign = one.request;
    foreign.remote_addr = "127.0.0.2";
    EXPECT_EQ(Sandbox::FindConnection(foreign), -1);
    EXPECT_EQ(Sandbox::FindConnection({}), -1);
    one.server.reset();
    EXPECT_EQ(Sandbox::FindConnection(one.request), -1);
}

TEST(SandboxConnectionsTest, ConnectionOverIPv6IsFoundToo) {
    LoopbackListener listener(true);
    if (listener.Port() == 0) return LeaveOut("this machine has no IPv6");
    Connection connection(listener, AF_INET6);
    EXPECT_GE(Sandbox::FindConnection(connection.request), 3);
}

TEST(SandboxConnectionsTest, ClientHasHungUpOnceItClosed) {
    LoopbackListener listener;
    Connection closed(listener), reset(listener), open(listener);
    for (Connection* connection : {&closed, &reset, &open})
        EXPECT_FALSE(Sandbox::HasHungUp(Sandbox::FindConnection(connection->request)));
    const int socket = Sandbox::FindConnection(closed.request);
    const int resetSocket = Sandbox::FindConnection(reset.request);
    closed.client.Send("bytes that nobody reads");
    EXPECT_FALSE(Sandbox::HasHungUp(socket));
    closed.client.Close();
    reset.client.Reset();
    // The other end has been told by the time a read says so.
    EXPECT_EQ(closed.server->Receive(100), "bytes that nobody reads");
    EXPECT_EQ(reset.server->Receive(1), "");
    EXPECT_TRUE(Sandbox::HasHungUp(socket));
    EXPECT_TRUE(Sandbox::HasHungUp(resetSocket));
    EXPECT_FALSE(Sandbox::HasHungUp(Sandbox::FindConnection(open.request)));
}

TEST(SandboxConnectionsTest, NoConnectionCountsAsHungUpAndCannotBeReset) {
    EXPECT_TRUE(Sandbox::HasHungUp(-1));
    Sandbox::ResetConnection(-1);
}

TEST(SandboxConnectionsTest, ResetReachesTheClientAsOne) {
    LoopbackListener listener;
    Connection connection(listener);
    const int socket = Sandbox::FindConnection(connection.request);
    Sandbox::ResetConnection(socket);
    char byte;
    EXPECT_EQ(recv(connection.descriptor, &byte, 1, 0), -1);
    EXPECT_EQ(errno, ECONNRESET);
    // Its owner, too, sees an end: a broken connection is one that the TLS library tries for a second.
    EXPECT_EQ(recv(socket, &byte, 1, 0), 0);
    EXPECT_FALSE(connection.server->Send("x"));
}

TEST(SandboxConnectionsTest, ReadingEndsOnAPortButForSomeClients) {
    LoopbackListener listener, elsewhere;
    Connection ended(listener), kept(listener), foreign(elsewhere);
    Sandbox::EndReading(listener.Port(),
                        {{"127.0.0.1", kept.request.remote_port}, {"127.0.0.2", ended.request.remote_port}});
    EXPECT_EQ(ended.server->Receive(1), "");
    for (Connection* connection : {&kept, &foreign}) {
        EXPECT_TRUE(connection->client.Send("a"));
        EXPECT_EQ(connection->server->Receive(1), "a");
    }
    // The ends of the clients are in this process, too, and are let be.
    EXPECT_TRUE(ended.server->Send("b"));
    EXPECT_EQ(ended.client.Receive(1), "b");
}

}  // namespace
}  // namespace Ombry::Tests
