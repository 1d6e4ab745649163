// The commands of a configured machine, killed at each change of a file that their main thread makes.

#include "tests/EndToEnd/Faults/Strace.h"
#include "tests/EndToEnd/Sandbox.h"

namespace Ombry::Tests {
namespace {

class EnrollmentFaultsTest : public testing::Test {
protected:
    EnrollmentFaultsTest() {
        machine.Run({"configure-bootstrap-url", "-t", "t", "-d", Sandbox::DatacenterId, "-r", sandbox.Url()});
    }

    /// Kills `command` at each change of a file in turn, each time behind `prepare`, and lets it run whole
    /// afterwards.
    void KillAndRunAgain(const std::vector<Words>& prepare, const Words& command) {
        const auto prepared = [&] {
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
            ExpectSuccess(machine.Run(command));
        }
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

}  // namespace
}  // namespace Ombry::Tests
