// Whole commands on a service of two servers of which the first is out of order.

#include "tests/Fakes/ForwardingSockets.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

#include <mutex>

namespace Ombry::Tests {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;
using Durations = std::vector<Duration>;

const Texts EnrollAgain{"enroll-client", "-t", "t", "-nn", "c1"};
const Texts UnenrollC1{"unenroll-client", "-t", "t", "-un", "c1"};
const std::string Find = "GET /services/services/secure/name/v1-auth Bearer t";
const std::string Delete = "DELETE /v1/auth/clients/c1-id Bearer t";
const std::string EnrollRequest = "POST /v1/auth/locationawareclients Bearer t";

class CommandFailOverTest : public testing::Test, protected ConfiguredMachine {
protected:
    CommandFailOverTest() {
        web.first = [this](const std::string& request) -> std::optional<std::string> {
            if (request.starts_with("GET /services/services/secure/name/v1-auth "))
                return LoopbackServer::Response("{\"local\": [" + Instance("first", firstUrl) + ", " +
                                                Instance("second", web.server.Url()) + "]}");
            std::lock_guard guard(mutex);
            if (busy == 0 || request.starts_with("GET ")) return std::nullopt;
            --busy;
            return LoopbackServer::Response("later", "503 Unavailable");
        };
    }

    static std::string Instance(const std::string& id, const std::string& url) {
        return "{\"id\": \"" + id + "\", \"serviceName\": \"v1-auth\", \"endpointUrl\": \"" + url + "\"}";
    }

    /// Runs the tool; what it wrote on its error stream.
    std::string Run(const Texts& words) {
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.exitCode, run.error.empty() ? 0 : -1);
        return run.error;
    }

    /// The requests that the service of the list and of the second server got, without bodies.
    Texts Asked() const {
        Texts asked;
        for (const std::string& request : web.Summaries())
            asked.push_back(request.substr(0, request.find(" {")));
        return asked;
    }

    ForwardingSockets sockets;
    const Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    std::string firstUrl;
    std::mutex mutex;
    int busy = 0;  // answers with 503 that the second server still gives; guarded by mutex
};

TEST_F(CommandFailOverTest, SecondServerAnswersAtOnceForOneThatRefusesConnections) {
    firstUrl = RefusingUrl();

    EXPECT_EQ(Run(EnrollNew), "");

    EXPECT_EQ(Asked(), (Texts{Find, EnrollRequest}));
    EXPECT_EQ(clock.Sleeps(), Durations());
    // Discovery and each server; a connect that is refused is not tried twice.
    EXPECT_EQ(sockets.CallsOf("Connect"), 3u);
}

TEST_F(CommandFailOverTest, ServerThatAnswersStaysInUseForTheRestOfTheCommand) {
    firstUrl = RefusingUrl();

    EXPECT_EQ(Run(EnrollAgain), "");

    EXPECT_EQ(Asked(), (Texts{Find, Delete, EnrollRequest}));
    EXPECT_EQ(sockets.CallsOf("Connect"), 3u);
    EXPECT_EQ(clock.Sleeps(), Durations());
}

TEST_F(CommandFailOverTest, ServersThatFailedOnceAreTriedAgainOneSecondLater) {
    firstUrl = RefusingUrl();
    busy = 1;

    EXPECT_EQ(Run(EnrollAgain), "");

    EXPECT_EQ(Asked(), (Texts{Find, Delete, EnrollRequest}));
    EXPECT_EQ(clock.Sleeps(), (Durations{250ms, 250ms, 250ms, 250ms}));
}

TEST_F(CommandFailOverTest, WhenAllServersFailTheLastAnswerIsTheText) {
    firstUrl = RefusingUrl();
    busy = 2;

    EXPECT_EQ(Run(EnrollAgain),
              "Caught exception: EnrollClient: unexpected http status 503 body = 'later'\n");

    EXPECT_EQ(Asked(), (Texts{Find, Delete, EnrollRequest}));
    EXPECT_EQ(clock.Sleeps(), (Durations{250ms, 250ms, 250ms, 250ms}));
}

TEST_F(CommandFailOverTest, SecondServerAnswersForOneThatIsSilentForAHundredSeconds) {
    int silentSeconds = 0;
    LoopbackServer first([&](LoopbackServer::Connection& connection) {
        if (connection.ReadRequest().empty()) return;
        sockets.BeSilent([&] {
            clock.Advance(1s);
            if (++silentSeconds == 100) sockets.EndSilence();
        });
        connection.AwaitClose();
    });
    firstUrl = first.Url();
    const TimePoint start = clock.Now();

    EXPECT_EQ(Run(EnrollNew), "");

    EXPECT_EQ(first.Connections(), 1u);  // silence is not tried again on the same server
    EXPECT_EQ(clock.Now() - start, Duration(100s));
    EXPECT_EQ(Asked(), (Texts{Find, EnrollRequest}));
    EXPECT_EQ(clock.Sleeps(), Durations());
}

TEST_F(CommandFailOverTest, SecondServerAnswersForABareWebServer) {
    LoopbackServer first(LoopbackServer::Answering(
        LoopbackServer::Response("", "404 Not Found", "Server: Microsoft-IIS/10.0\r\n")));
    firstUrl = first.Url();

    EXPECT_EQ(Run(UnenrollC1), "");

    EXPECT_EQ(first.Requests().size(), 1u);
    EXPECT_EQ(Asked(), (Texts{Find, Delete}));
    EXPECT_EQ(clock.Sleeps(), Durations());
}

TEST_F(CommandFailOverTest, NotFoundInTheServicesOwnWordsIsTheAnswer) {
    LoopbackServer first(LoopbackServer::Answering(
        LoopbackServer::Response("", "404 Not Found", "Server: Other Microsoft-IIS/10.0\r\n")));
    firstUrl = first.Url();

    EXPECT_EQ(Run(EnrollNew), "Caught exception: EnrollClient: unexpected http status 404 body = ''\n");

    EXPECT_EQ(first.Requests().size(), 1u);
    EXPECT_EQ(Asked(), (Texts{Find}));
}

}  // namespace
}  // namespace Ombry::Tests
