// The commands of a configured machine, killed at each change of a file that their main thread makes.

#include <functional>

#include "tests/EndToEnd/Faults/Strace.h"
#include "tests/EndToEnd/Sandbox.h"

namespace Ombry::Tests {
namespace {

class EnrollmentFaultsTest : public testing::Test {
protected:
    EnrollmentFaultsTest() {
        machine.Run({"configure-bootstrap-url", "-t", "t", "-d", Sandbox::DatacenterId, "-r", sandbox.Url()});
    }

    /// Kills `command` at each change of a file in turn, each time behind `prepare`, and runs `mend`
    /// afterwards.
    void KillAndMend(const std::vector<Words>& prepare, const Words& command,
                     const std::function<void(const TracedCall&)>& mend) {
        const auto prepared = [&] {
            // Tokens of an earlier client of the name would be refused, and too young to be renewed.
            std::filesystem::remove_all(machine.Folder() / (SecurityFolder + "/CS-cpp/cache/c1"));
            for (const Words& words : prepare)
                ExpectSuccess(machine.Run(words));
        };
        prepared();
        std::vector<TracedCall> calls;
        for (const TracedCall& call : TraceOf(machine, command)) {
            static const std::regex changes("openat|mkdir|fchmod|fallocate|write|fsync|rename|unlink");
            const bool changesFile = std::regex_match(call.name, changes) &&
                                     call.line.find("Quennet") != std::string::npos &&
                                     call.line.find("O_RDONLY") == std::string::npos;
            if (changesFile) calls.push_back(call);
        }
        ASSERT_FALSE(calls.empty());
        for (const TracedCall& call : calls) {
            prepared();
            // A background thread may have made one of the changes of the traced run: then this run ends
            // well.
            const int exitCode = RunWithFate(machine, call, "signal=KILL", command).exitCode;
            EXPECT_TRUE(exitCode == 137 || exitCode == 0) << exitCode << call.line;
            mend(call);
        }
    }
    void KillAndRunAgain(const std::vector<Words>& prepare, const Words& command) {
        KillAndMend(prepare, command, [&](const TracedCall&) { ExpectSuccess(machine.Run(command)); });
    }

    const Sandbox sandbox{
        Words{"--install-token", "t", "--cache-control", "max-age=0, stale-while-revalidate=604500"}};
    const Machine machine;
};

const Words EnrollClient{"enroll-client", "-t", "t", "-nn", "c1"};
const Words EnrollService{"enroll-service", "-t",         "t",  "-owner",    "c1", "-name", "svc", "-url",
                          "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};

TEST_F(EnrollmentFaultsTest, ClientIsEnrolledByTheNextRun) {
    KillAndRunAgain({}, EnrollClient);
}

TEST_F(EnrollmentFaultsTest, ServiceIsEnrolledByTheNextRun) {
    KillAndRunAgain({EnrollClient}, EnrollService);
}

TEST_F(EnrollmentFaultsTest, ServiceIsRemovedByTheNextRun) {
    KillAndRunAgain({EnrollClient, EnrollService}, {"unenroll-service", "-t", "t", "-on", "c1", "-s", "svc"});
}

TEST_F(EnrollmentFaultsTest, ClientIsRemovedByTheNextRun) {
    KillAndRunAgain({EnrollClient}, {"unenroll-client", "-t", "t", "-un", "c1"});
}

TEST_F(EnrollmentFaultsTest,
       ClientThatRemovesItselfIsRemovedByTheNextRunOrByAnAdministratorOnceTheServiceForgotIt) {
    const std::string credentials = SecurityFolder + "/Components/c1/ombrycomponent.config";
    const Words command{"unenroll-client-self", "-n", "c1"};
    int forgotten = 0;
    KillAndMend({EnrollClient}, command, [&](const TracedCall& call) {
        if (machine.Files().count(credentials) == 0) return;  // done
        const ProcessOutcome again = machine.Run(command);
        if (again.exitCode != 0) {
            // The service has deleted the client and takes nothing from it any more.
            ++forgotten;
            EXPECT_EQ(call.name, "unlink") << call.line;
            ExpectException(
                again,
                "DeleteClient: unexpected http status 401 body = "
                R"('{"error":"invalid_token","error_description":"A valid token for 'v1-auth' is needed."}')");
            ExpectSuccess(machine.Run({"unenroll-client", "-t", "t", "-un", "c1"}));
        }
        EXPECT_EQ(machine.Files().count(credentials), 0u) << call.line;
    });
    EXPECT_GT(forgotten, 0);
}

}  // namespace
}  // namespace Ombry::Tests
