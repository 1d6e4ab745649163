// The two commands of a machine that is not tied yet, while a real server takes their request and says
// nothing.

#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/ForwardingSockets.h"
#include "tests/Fakes/LoopbackServer.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

class SilentServerTest : public testing::Test {
protected:
    /// A server that answers `answers` requests and then only listens, while a second passes whenever nobody
    /// has anything to say.
    LoopbackServer::Script SilentBehind(int answers) {
        return [this, answers](LoopbackServer::Connection& connection) {
            for (int i = 0; i < answers; ++i) {
                connection.ReadRequest();
                connection.Send(LoopbackServer::Response(R"({"access_token":"x"})"));
            }
            connection.ReadRequest();
            sockets.BeSilent([this] { clock.Advance(1s); });
            connection.AwaitClose();
        };
    }

    /// A server that lists one datacenter and then, where its certificate is looked for, sends some bytes at
    /// most.
    std::vector<LoopbackServer::Script> SilentInTheHandshakeBehind(const std::string& bytes) {
        return {LoopbackServer::Answering(LoopbackServer::Response(R"([{"id":"i","name":"n"}])")),
                [this, bytes](LoopbackServer::Connection& connection) {
                    connection.ReadBytes(1);
                    connection.Send(bytes);
                    sockets.BeSilent([this] { clock.Advance(1s); });
                    connection.AwaitClose();
                }};
    }

    void ExpectGivenUp(const LoopbackServer& server, const Words& words, Duration limit = 100s,
                       const std::string& text = "Error 11.13", std::size_t connections = 1) {
        const TimePoint start = clock.Now();
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.exitCode, -1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.error, "Caught exception: " + text + "\n");
        EXPECT_EQ(clock.Now() - start, limit);
        EXPECT_EQ(server.Connections(), connections) << "silence is not tried again";
        EXPECT_TRUE(files.Contents().empty());
        sockets.EndSilence();
    }

    FakeClock clock;
    FakeKnownFolders folders{MemoryMachine()};
    MemoryFiles files;
    ForwardingSockets sockets;
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
};

TEST_F(SilentServerTest, ListThatNeverComesIsGivenUp) {
    const LoopbackServer server(SilentBehind(0));
    ExpectGivenUp(server, {"get-datacenters", "-t", "t", "-r", server.Url()});
}

TEST_F(SilentServerTest, TokenThatNeverComesIsGivenUp) {
    const LoopbackServer server(SilentBehind(0));
    ExpectGivenUp(server, {"get-datacenters", "-u", "u", "-p", "p", "-r", server.Url()});
}

TEST_F(SilentServerTest, ListThatNeverComesBehindATokenIsGivenUp) {
    const LoopbackServer server(SilentBehind(1));
    ExpectGivenUp(server, {"get-datacenters", "-u", "u", "-p", "p", "-r", server.Url()});
}

TEST_F(SilentServerTest, MachineIsNotTiedToAServiceThatFallsSilent) {
    const LoopbackServer server(SilentBehind(0));
    ExpectGivenUp(server, {"configure-bootstrap-url", "-t", "t", "-d", "i", "-r", server.Url()});
}

TEST_F(SilentServerTest, ServerThatFallsSilentInTheHandshakeIsGivenUpAfterFifteenSeconds) {
    for (const std::string bytes : {"", "\x16\x03\x03"}) {  // the latter the head of a record, not whole
        const LoopbackServer server(SilentInTheHandshakeBehind(bytes));
        ExpectGivenUp(server, {"configure-bootstrap-url", "-t", "t", "-d", "i", "-r", server.Url()}, 15s,
                      "Unable to connect to 127.0.0.1:" + std::to_string(server.Port()) + " due to error 13",
                      2);
    }
}

}  // namespace
}  // namespace Ombry::Tests
