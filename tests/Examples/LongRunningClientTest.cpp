// The example of a long-running client, as a process, against the sandbox service.

#include "tests/EndToEnd/Machine.h"
#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/HeldPort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

namespace Ombry::Tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* Service = "v1-service";
constexpr const char* Path = "/services/services/secure/name/robots";
constexpr const char* TokenCall = "POST /securityframeworkservice/v1/auth/clients/servicetokens 200\n";

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        ++count;
    return count;
}

/// A configured machine on which the client "robot" is enrolled, and the example running there.
class LongRunningClientTest : public ::testing::Test {
protected:
    /// Always on the same port.
    void StartService(Words options = {}) {
        options.insert(options.end(), {"--port", port.Text()});
        sandbox = std::make_unique<Sandbox>(options, state);
    }

    void EnrollRobot() {
        ExpectSuccess(machine.Run({"configure-bootstrap-url", "-u", "admin", "-p", "secret", "-dn", "Sandbox",
                                   "-r", sandbox->Url()}));
        ExpectSuccess(machine.Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", "robot"}));
    }

    static Words Line(const Words& words) {
        Words line = ToolUnderTest::Program(OMBRY_LONG_RUNNING_CLIENT_HERE);
        line.insert(line.end(), words.begin(), words.end());
        return line;
    }

    std::unique_ptr<ChildProcess> StartClient(const std::string& pause) {
        return std::make_unique<ChildProcess>(Line({"robot", Service, Path, pause}),
                                              ProcessOptions{.folder = machine.Folder().Path()});
    }

    /// The line of the first round from `round` on whose outcome begins with `outcome`; moves `round` behind
    /// it.
    static std::string AwaitOutcome(ChildProcess& client, long& round, const std::string& outcome) {
        for (;;) {
            const std::string start = std::to_string(round++) + ": ";
            const std::string line = client.AwaitLine(start);
            if (line.starts_with(start + outcome)) return line;
        }
    }

    /// Lets the cached tokens of the machine look `age` old.
    void AgeTokens(std::chrono::seconds age) {
        const auto then = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - age;
        const std::time_t time = std::chrono::system_clock::to_time_t(then);
        std::tm fields{};
        gmtime_r(&time, &fields);
        char text[32];
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.0000000Z", &fields);
        const std::filesystem::path folder =
            machine.Folder() / (SecurityFolder + "/CS-cpp/cache/robot/aa_token");
        std::size_t changed = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::ostringstream content;
            content << std::ifstream(entry.path()).rdbuf();
            const std::regex refreshed("(\"lastRefreshed\": \")[^\"]*");
            const std::string aged = std::regex_replace(content.str(), refreshed, std::string("$01") + text);
            ASSERT_THAT(aged, HasSubstr(text));
            const std::string beside = machine.Folder() / "aged";
            std::ofstream(beside) << aged;
            std::filesystem::rename(beside, entry.path());
            ++changed;
        }
        ASSERT_GT(changed, 0u);
    }

    const std::shared_ptr<TemporaryDirectory> state = std::make_shared<TemporaryDirectory>();
    const HeldPort port;
    std::unique_ptr<Sandbox> sandbox;
    Machine machine;
};

TEST_F(LongRunningClientTest, CallsAgainAndAgain_WithOneToken_AndStopsOnSIGINT) {
    StartService();
    EnrollRobot();
    const auto client = StartClient("0");
    EXPECT_THAT(client->AwaitLine("50: "), StartsWith("50: 200, "));
    EXPECT_THAT(client->AwaitLine("1: "), HasSubstr(" bytes from " + sandbox->Url()));
    client->Signal(SIGINT);
    EXPECT_EQ(client->Wait().exitCode, 0);
    EXPECT_EQ(Count(sandbox->Requests(), TokenCall), 1u);
}

TEST_F(LongRunningClientTest, TokenThatExpiredIsReplacedBeforeTheNextCall) {
    StartService();
    EnrollRobot();
    const auto client = StartClient("20");
    long round = 1;
    AwaitOutcome(*client, round, "200, ");
    AgeTokens(std::chrono::hours(2));
    const long aged = round + 2;
    while (round < aged)
        AwaitOutcome(*client, round, "200, ");
    client->Signal(SIGINT);
    EXPECT_EQ(client->Wait().exitCode, 0);
    EXPECT_THAT(client->Wait().out, Not(HasSubstr(": 401")));
    EXPECT_EQ(Count(sandbox->Requests(), TokenCall), 2u);
}

TEST_F(LongRunningClientTest, TokenThatTheServiceRefusesIsReplacedWithinTheCall) {
    StartService();
    EnrollRobot();
    auto client = StartClient("0");
    client->AwaitLine("1: 200, ");
    client->Signal(ToolUnderTest::Termination());
    EXPECT_EQ(client->Wait().exitCode, 0);
    sandbox->Stop();

    AgeTokens(std::chrono::minutes(1));
    StartService({"--fault", std::string(Path) + ":1:status=401"});
    client = StartClient("0");
    EXPECT_THAT(client->AwaitLine("1: "), StartsWith("1: 200, "));
    client->Signal(ToolUnderTest::Termination());
    EXPECT_EQ(client->Wait().exitCode, 0);
    EXPECT_EQ(Count(sandbox->Requests(), TokenCall), 1u);
}

TEST_F(LongRunningClientTest, ServiceThatWasDownIsCalledAgainOnceItIsBack) {
    StartService();
    EnrollRobot();
    const auto client = StartClient("20");
    long round = 1;
    AwaitOutcome(*client, round, "200, ");
    sandbox->Stop();
    EXPECT_THAT(AwaitOutcome(*client, round, "no answer: "),
                HasSubstr("No IServiceResponse from any servers."));
    StartService();
    AwaitOutcome(*client, round, "200, ");
    client->Signal(SIGINT);
    EXPECT_EQ(client->Wait().exitCode, 0);
}

TEST_F(LongRunningClientTest, SignalEndsALongPauseAtOnce) {
    StartService();
    EnrollRobot();
    const auto client = StartClient("3600000");
    client->AwaitLine("1: 200, ");
    const auto signalled = std::chrono::steady_clock::now();
    client->Signal(ToolUnderTest::Termination());
    EXPECT_EQ(client->Wait().exitCode, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, std::chrono::seconds(15));
}

TEST_F(LongRunningClientTest, SignalEndsACallThatGetsNoAnswer) {
    StartService({"--fault", std::string(Path) + ":1000:silence"});
    EnrollRobot();
    const auto client = StartClient("0");
    client->AwaitLine("Calling " + std::string(Path) + " at v1-service as robot.");
    const auto signalled = std::chrono::steady_clock::now();
    client->Signal(SIGINT);
    const ProcessOutcome& outcome = client->Wait();
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.out, Not(HasSubstr("1: ")));
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, std::chrono::seconds(15));
}

TEST_F(LongRunningClientTest, MachineThatIsNotConfiguredIsAnError) {
    const ProcessOutcome outcome =
        RunProcess(Line({"robot", Service, Path}), {.folder = machine.Folder().Path()});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.error, StartsWith("long_running_client: "));
    EXPECT_THAT(outcome.error, HasSubstr("Components/robot/ombrycomponent.config' for read."));
}

TEST_F(LongRunningClientTest, CommandLineThatDoesNotFitPrintsTheUsage) {
    for (const Words& words : {Words{}, Words{"robot", Service}, Words{"robot", Service, Path, "x"},
                               Words{"robot", Service, Path, "-1"}, Words{"robot", Service, Path, "5s"},
                               Words{"robot", Service, Path, "1", "2"}}) {
        const ProcessOutcome outcome = RunProcess(Line(words), {.folder = machine.Folder().Path()});
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_THAT(outcome.error, StartsWith("long_running_client CLIENT SERVICE PATH [MILLISECONDS]"));
    }
}

}  // namespace
}  // namespace Ombry::Tests
