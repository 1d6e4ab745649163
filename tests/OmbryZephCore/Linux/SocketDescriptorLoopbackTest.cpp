// What the sockets stack asks of the descriptors of this system, and the numbers that it logs.

#include "tests/Fakes/HeldPort.h"
#include "tests/OmbryZephCore/SocketStackFixture.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Ombry::Tests {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;

class SocketDescriptorLoopbackTest : public SocketStackLoopbackTest {};

TEST_F(SocketDescriptorLoopbackTest, AConnectedSocketBlocksInTheEnd) {
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, nullptr, 0), 0u);
    EXPECT_EQ(fcntl(static_cast<int>(connector.GetSocket()), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(SocketDescriptorLoopbackTest, FailuresAreLoggedWithTheSystemsNumbers) {
    const HeldPort port;
    EXPECT_EQ(connector.Connect("127.0.0.1", port.Port(), 3, nullptr, 0), 1u);
    EXPECT_THAT(logger->Messages().front(),
                AnyOf("getsockopt() returned SO_ERROR " + std::to_string(ECONNREFUSED),
                      "Failed to connect to 127.0.0.1:" + port.Text() +
                          ".  Last error = " + std::to_string(ECONNREFUSED)));
    logger->Clear();
    EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, "192.0.2.1", 0), 1u);
    EXPECT_EQ(logger->Messages().front(),
              "Failed to bind socket.  Last error = " + std::to_string(EADDRNOTAVAIL));
    logger->Clear();
    LoopbackPeer peer = ConnectPair();
    peer.Reset();
    socket.StartRead(100, buffer.data());
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(logger->Messages(),
                ElementsAre("recv failed. socket = " + std::to_string(connector.GetSocket()) +
                            ", Last error = " + std::to_string(ECONNRESET)));
    logger->Clear();
    socket.StartRead(5, buffer.data());
    connector.Close();
    EXPECT_EQ(Run(), 0u);
    EXPECT_THAT(logger->Messages(), ElementsAre("select failed. Last error = " + std::to_string(EBADF)));
}

TEST_F(SocketDescriptorLoopbackTest, ASocketNumberedBeyond1023IsServed) {
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
