// Connector, reactor and socket stage over real sockets on loopback.

#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "OmbryZephCore/ZephSocketIO.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Fakes/LoopbackPeer.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using Cancellation::Token;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class WatchedStage : public ZephIOCompletionHandlerIf {
public:
    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        events.push_back(std::string(nTaskType == 0 ? "read " : "write ") +
                         (bSuccess ? std::to_string(nBytes) : "failed"));
        lastBytes = nBytes;
        if (onComplete) onComplete(nTaskType, bSuccess, nBytes);
    }
    void AbortTask(std::uint32_t) override { events.push_back("abort"); }
    void OnDrained() override { events.push_back("drained"); }

    std::vector<std::string> events;
    std::uint32_t lastBytes = 0;
    std::function<void(std::uint32_t, bool, std::uint32_t)> onComplete;
};

class SocketStackLoopbackTest : public ::testing::Test {
protected:
    LoopbackPeer ConnectPair() {
        EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, nullptr, 0), 0u);
        EXPECT_EQ(socket.Initialize(connector.GetSocket(), &manager, &manager, nullptr), 0u);
        EXPECT_EQ(socket.RegisterIOCompletionHandler(&stage), 0u);
        return listener.Accept();
    }
    std::uint32_t Run() { return manager.DoPendingIO(10, Token()); }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>(1);
    LoopbackListener listener;
    ZephSocketConnector connector{logger};
    ZephIOTaskManager_Sync manager{logger};
    ZephSocketIO socket;
    WatchedStage stage;
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(4096);
};

TEST_F(SocketStackLoopbackTest, ConnectsAndNamesItsPeer) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, nullptr, 0), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "127.0.0.1:" + std::to_string(listener.Port()));
    EXPECT_TRUE(connector.IsConnected());
    EXPECT_EQ(fcntl(static_cast<int>(connector.GetSocket()), F_GETFL) & O_NONBLOCK, 0)
        << "blocking in the end";
    connector.Close();
    EXPECT_EQ(listener.Accept().Receive(1), "") << "the peer sees the close";
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SocketStackLoopbackTest, ConnectsOverIPv6WhereTheMachineHasIt) {
    LoopbackListener six(AF_INET6);
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
    EXPECT_THAT(logger->Messages(),
                ElementsAre(::testing::AnyOf("getsockopt() returned SO_ERROR " + std::to_string(ECONNREFUSED),
                                             "Failed to connect to " + server +
                                                 ".  Last error = " + std::to_string(ECONNREFUSED)),
                            "Failed to connect to server '" + server + "'"));
}

TEST_F(SocketStackLoopbackTest, ANameThatCannotExistDoesNotResolve) {
    EXPECT_EQ(connector.Connect("", listener.Port(), 3, nullptr, 0), 14u);
    EXPECT_FALSE(connector.IsConnected());
}

TEST_F(SocketStackLoopbackTest, BindsToTheLocalAddressThatItIsGiven) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, "127.0.0.2", 0), 0u);
    EXPECT_EQ(listener.Accept().RemoteAddress(), "127.0.0.2");
}

TEST_F(SocketStackLoopbackTest, ALocalAddressThatIsNotOursFailsTheConnect) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, "192.0.2.1", 0), 1u);
    EXPECT_EQ(logger->Messages().front(),
              "Failed to bind socket.  Last error = " + std::to_string(EADDRNOTAVAIL));
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
    LoopbackPeer peer = ConnectPair();
    peer.Reset();
    socket.StartRead(100, buffer.data());
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(stage.events, ElementsAre("read failed"));
    EXPECT_THAT(logger->Messages(),
                ElementsAre("recv failed. socket = " + std::to_string(connector.GetSocket()) +
                            ", Last error = " + std::to_string(ECONNRESET)));
}

TEST_F(SocketStackLoopbackTest, AWriteToAPeerThatDoesNotReadIsShortAndNeverBlocks) {
    LoopbackPeer peer = ConnectPair();
    buffer.resize(64 << 20);
    socket.StartWrite(static_cast<std::uint32_t>(buffer.size()), buffer.data());
    EXPECT_EQ(Run(), 0u);
    ASSERT_EQ(stage.events.size(), 1u);
    EXPECT_GT(stage.lastBytes, 0u);
    EXPECT_LT(stage.lastBytes, buffer.size());
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
    EXPECT_THAT(logger->Messages(), ElementsAre("select failed. Last error = " + std::to_string(EBADF)));
}

TEST_F(SocketStackLoopbackTest, ASocketNumberedBeyond1023IsServed) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<int> fillers;
    for (int descriptor = 0; descriptor >= 0 && descriptor < 1023;) {
        descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (descriptor >= 0) fillers.push_back(descriptor);
    }
    {
        LoopbackPeer peer = ConnectPair();
        EXPECT_GE(connector.GetSocket(), 1024);
        EXPECT_TRUE(peer.Send("high"));
        socket.StartRead(100, buffer.data());
        EXPECT_EQ(Run(), 0u);
        EXPECT_THAT(stage.events, ElementsAre("read 4"));
        socket.UnRegisterIOCompletionHandler();
        connector.Close();
    }
    for (const int descriptor : fillers)
        close(descriptor);
    setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace Ombry::Tests
