// A command is killed at each change of a file, or each of its changes fails; what the doctor says of the
// machine that is left is held against the next command, and what it advises to type is typed.

#include "tests/Doctor/EndToEnd/Patient.h"
#include "tests/EndToEnd/Faults/Strace.h"

#include <atomic>
#include <functional>

namespace Ombry::Tests {
namespace {

class KilledRunTruthTest : public testing::Test {
protected:
    Words ConfigureFor(const Sandbox& service, const std::string& name) const {
        return {"configure-bootstrap-url", "-t", "t", "-dn", name, "-r", service.Url()};
    }
    static Words Next() { return {"enroll-client", "-t", "t", "-nn", "next"}; }

    using Check = std::function<void(const Machine&, const std::string& when)>;

    /// Kills `command` at each change of a file, on a machine of its own behind `prepare`, two at a time, and
    /// checks what is left.
    void ForEachKill(const std::vector<Words>& prepare, const Words& command, const Check& check) const {
        ForEachFate("signal=KILL", prepare, command, check);
    }
    /// The same with a disk on which each change fails in turn.
    void ForEachFailure(const std::vector<Words>& prepare, const Words& command, const Check& check) const {
        ForEachFate("error=EIO", prepare, command, check);
    }

    void ForEachFate(const std::string& fate, const std::vector<Words>& prepare, const Words& command,
                     const Check& check) const {
        const auto prepared = [&](const Machine& machine) {
            for (const Words& words : prepare)
                ExpectSuccess(machine.Run(words));
        };
        std::vector<TracedCall> calls;
        {
            const Machine machine{};
            prepared(machine);
            static const std::regex changes(
                "openat|mkdir|chmod|fchmod|fallocate|write|fsync|rename|renameat2?|link|unlink|flock");
            for (const TracedCall& call : TraceOf(machine, command)) {
                const bool isChange = std::regex_match(call.name, changes) &&
                                      call.line.find("Quennet") != std::string::npos &&
                                      call.line.find("O_RDONLY") == std::string::npos;
                if (isChange) calls.push_back(call);
            }
        }
        ASSERT_GT(calls.size(), 10u);
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t place; (place = next++) < calls.size();) {
                const Machine machine{};
                prepared(machine);
                RunWithFate(machine, calls[place], fate, command);
                check(machine, calls[place].line);
            }
        };
        std::thread second(work);
        work();
        second.join();
    }

    /// With a warning the next command works, too; but for the one that says that it cannot be told which
    /// service is meant.
    void ExpectTruth(const Machine& machine, const std::string& when, const Words& next,
                     const Sandbox& service) {
        const std::string folder = machine.Folder().Path();
        const Verdict verdict = Examine(folder);
        doubtful += verdict.exitCode == 1;
        broken += verdict.IsBroken();
        // One of two services whose key is trusted and whose address is known would be tried for minutes.
        if (!verdict.Says("bootstrap.whole", "warning")) {
            const ProcessOutcome outcome = CopiedMachine(folder).RunBelow({"timeout", "60"}, next);
            EXPECT_EQ(outcome.exitCode == 0, !verdict.IsBroken()) << when << outcome.error << verdict.Text();
        }
        TypeRemedies(folder, verdict, service.Url());
        const Verdict mended = Examine(folder);
        EXPECT_TRUE(mended.IsFine()) << when << "\n" << verdict.Text() << "and then\n" << mended.Text();
        const ProcessOutcome last = machine.Run(next);
        EXPECT_EQ(last.exitCode, 0) << when << "\n" << verdict.Text() << last.error;
    }

    std::atomic<int> broken = 0;
    std::atomic<int> doubtful = 0;
};

TEST_F(KilledRunTruthTest, MachineThatWasBeingTiedToAService) {
    const Sandbox service{Words{"--install-token", "t"}};
    ForEachKill({}, ConfigureFor(service, "Sandbox"), [&](const Machine& machine, const std::string& when) {
        ExpectTruth(machine, when, Next(), service);
    });
    EXPECT_GT(broken, 10);
}

TEST_F(KilledRunTruthTest, MachineThatWasBeingTiedToAnotherService) {
    const Sandbox older{Words{"--datacenter", "old=Old", "--install-token", "t"}};
    const Sandbox newer{Words{"--datacenter", "new=Sandbox", "--install-token", "t"}};
    ForEachKill(
        {ConfigureFor(older, "Old")}, ConfigureFor(newer, "Sandbox"),
        [&](const Machine& machine, const std::string& when) { ExpectTruth(machine, when, Next(), newer); });
    EXPECT_GT(broken, 2);
    EXPECT_GT(doubtful, 2);
    ForEachFailure(
        {ConfigureFor(older, "Old")}, ConfigureFor(newer, "Sandbox"),
        [&](const Machine& machine, const std::string& when) { ExpectTruth(machine, when, Next(), newer); });
}

TEST_F(KilledRunTruthTest, MachineThatWasEnrollingOrRemoving) {
    const Sandbox service{
        Words{"--install-token", "t", "--cache-control", "max-age=0, stale-while-revalidate=604500"}};
    const Words configure = ConfigureFor(service, "Sandbox");
    const Words enrollClient{"enroll-client", "-t", "t", "-nn", "c1"};
    const Words enrollService{"enroll-service", "-t",         "t",  "-owner",    "c1", "-name", "svc", "-url",
                              "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};
    const Words unenrollService{"unenroll-service", "-t", "t", "-on", "c1", "-s", "svc"};
    const Words unenrollClient{"unenroll-client", "-t", "t", "-un", "c1"};
    const auto check = [&](const Words& next) {
        return [&, next](const Machine& machine, const std::string& when) {
            ExpectTruth(machine, when, next, service);
        };
    };
    ForEachKill({configure}, enrollClient, check(enrollClient));
    ForEachKill({configure, enrollClient}, enrollService, check(enrollService));
    ForEachKill({configure, enrollClient, enrollService}, unenrollService, check(unenrollService));
    ForEachKill({configure, enrollClient}, unenrollClient, check(unenrollClient));
    // What the service has forgotten by then, the machine cannot know; another client of the name can be
    // made.
    ForEachKill({configure, enrollClient}, {"unenroll-client-self", "-n", "c1"}, check(enrollClient));
    ForEachFailure({configure}, enrollClient, check(enrollClient));
    ForEachFailure({configure, enrollClient}, enrollService, check(enrollService));
    EXPECT_EQ(broken, 0) << "what these leave is mended by the next run";
    EXPECT_GT(doubtful, 5);
}

}  // namespace
}  // namespace Ombry::Tests
