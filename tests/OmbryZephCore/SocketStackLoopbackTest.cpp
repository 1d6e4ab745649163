// Connector, reactor and socket stage over real sockets on loopback.

#include "tests/Fakes/HeldPort.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/OmbryZephCore/SocketStackFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST_F(SocketStackLoopbackTest, ConnectsAndNamesItsPeer) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, nullptr, 0), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "127.0.0.1:" + std::to_string(listener.Port()));
    EXPECT_TRUE(connector.IsConnected());
    connector.Close();
    EXPECT_EQ(listener.Accept().Receive(1), "") << "the peer sees the close";
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SocketStackLoopbackTest, ConnectsOverIPv6WhereTheMachineHasIt) {
    LoopbackListener six(true);
    const std::uint16_t nPort = six.Port();
    const std::uint32_t nResult = connector.Connect("::1", nPort, 3, nullptr, 0);
    EXPECT_EQ(nResult, nPort == 0 ? 1u : 0u);
    EXPECT_EQ(connector.GetPeerAddress(), nPort == 0 ? "" : "[::1]:" + std::to_string(nPort));
}

TEST_F(SocketStackLoopbackTest, GoesOnToTheAddressOfTheNameThatListens) {
    EXPECT_EQ(connector.Connect("localhost", listener.Port(), 3, nullptr, 0), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "127.0.0.1:" + std::to_string(listener.Port()));
}

TEST_F(SocketStackLoopbackTest, AClosedPortFailsWithTheSystemsReasonInTheLog) {
    const HeldPort port;
    EXPECT_EQ(connector.Connect("127.0.0.1", port.Port(), 3, nullptr, 0), 1u);
    const std::string server = "127.0.0.1:" + port.Text();
    EXPECT_THAT(
        logger->Messages(),
        ElementsAre(::testing::AnyOf(StartsWith("getsockopt() returned SO_ERROR "),
                                     StartsWith("Failed to connect to " + server + ".  Last error = ")),
                    "Failed to connect to server '" + server + "'"));
}

/// A label is longer than any may be (RFC 1035, section 2.3.4), so no server of names is asked.
TEST_F(SocketStackLoopbackTest, ANameThatCannotExistDoesNotResolve) {
    const std::string noHost(64, 'h');
    EXPECT_EQ(connector.Connect(noHost.c_str(), listener.Port(), 3, nullptr, 0), 14u);
    EXPECT_FALSE(connector.IsConnected());
}

TEST_F(SocketStackLoopbackTest, BindsToTheLocalAddressThatItIsGiven) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, "127.0.0.2", 0), 0u);
    EXPECT_EQ(listener.Accept().RemoteAddress(), "127.0.0.2");
}

TEST_F(SocketStackLoopbackTest, ALocalAddressThatIsNotOursFailsTheConnect) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, "192.0.2.1", 0), 1u);
    EXPECT_THAT(logger->Messages().front(), StartsWith("Failed to bind socket.  Last error = "));
}

TEST_F(SocketStackLoopbackTest, BytesTravelBothWaysAndTheCloseOfThePeerIsAReadOfZero) {
    LoopbackPeer peer = ConnectPair();
    ASSERT_TRUE(peer.Send("question"));
    stage.onComplete = [&](std::uint32_t nType, bool, std::uint32_t nBytes) {
        if (nType == 0 && nBytes != 0) {
            EXPECT_EQ(socket.StartWrite(nBytes, buffer.data()), 0u);
        } else if (nType == 1) {
            EXPECT_EQ(peer.Receive(8), "question");
            peer.Close();
            EXPECT_EQ(socket.StartRead(100, buffer.data()), 0u);
        }
    };
    ASSERT_EQ(socket.StartRead(100, buffer.data()), 0u);
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(stage.events, ElementsAre("read 8", "write 8", "read 0"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SocketStackLoopbackTest, BytesBeforeTheCloseAreReadFirst) {
    LoopbackPeer peer = ConnectPair();
    ASSERT_TRUE(peer.Send("last words"));
    peer.Close();
    stage.onComplete = [&](std::uint32_t, bool, std::uint32_t nBytes) {
        if (nBytes != 0) socket.StartRead(100, buffer.data());
    };
    socket.StartRead(100, buffer.data());
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(stage.events, ElementsAre("read 10", "read 0"));
}

TEST_F(SocketStackLoopbackTest, AResetFailsTheRead) {
    if (!TellsAResetFromAnEnd()) return LeaveOut("this system shows a reset as an end");
    LoopbackPeer peer = ConnectPair();
    peer.Reset();
    socket.StartRead(100, buffer.data());
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(stage.events, ElementsAre("read failed"));
    EXPECT_THAT(logger->Messages(),
                ElementsAre(StartsWith("recv failed. socket = " + std::to_string(connector.GetSocket()) +
                                       ", Last error = ")));
}

TEST_F(SocketStackLoopbackTest, AWriteToAPeerThatDoesNotReadTellsWhatWasTakenAndNeverBlocks) {
    LoopbackPeer peer = ConnectPair();
    buffer.resize(64 << 20);
    socket.StartWrite(static_cast<std::uint32_t>(buffer.size()), buffer.data());
    EXPECT_EQ(Run(), 0u);
    ASSERT_EQ(stage.events.size(), 1u);
    EXPECT_GT(stage.lastBytes, 0u);  // on Windows all of them
    connector.Close();
    EXPECT_EQ(peer.Receive(buffer.size() + 1).size(), stage.lastBytes);
}

TEST_F(SocketStackLoopbackTest, AWriteToAPeerThatResetFailsWithoutASignal) {
    LoopbackPeer peer = ConnectPair();
    peer.Reset();
    socket.StartWrite(5, buffer.data());
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(stage.events, ElementsAre("write failed"));
}

TEST_F(SocketStackLoopbackTest, AHandleThatWasClosedFailsTheWaitAndItsTransfer) {
    LoopbackPeer peer = ConnectPair();
    socket.StartRead(5, buffer.data());
    connector.Close();
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(stage.events, ElementsAre("read failed"));
    EXPECT_THAT(logger->Messages(), ElementsAre(StartsWith("select failed. Last error = ")));
}

}  // namespace
}  // namespace Ombry::Tests
