// The commands of a configured machine, killed at each change of a file that they or their background threads
// make.

#include "tests/EndToEnd/Faults/DoctorsWord.h"
#include "tests/EndToEnd/Faults/Strace.h"
#include "tests/EndToEnd/Sandbox.h"

#include <functional>

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
            std::filesystem::remove_all(machine.Folder() / (CacheFolder + "/c1"));
            for (const Words& words : prepare)
                ExpectSuccess(machine.Run(words));
        };
        prepared();
        std::vector<TracedCall> calls = ChangesOf(machine, command);
        std::erase_if(calls,
                      [](const TracedCall& call) { return call.line.find("O_RDONLY") != std::string::npos; });
        ASSERT_FALSE(calls.empty());
        for (const TracedCall& call : calls) {
            SCOPED_TRACE(call.line);
            prepared();
            // A background thread may have made one of the changes of the traced run: then this run ends
            // well.
            const int exitCode = RunWithFate(machine, call, "signal=KILL", command).exitCode;
            EXPECT_TRUE(exitCode == 137 || exitCode == 0) << exitCode << call.line;
            EXPECT_LE(TemporariesOf(machine).size(), MostThreads) << call.line;
            DoctorsWord::ExpectNothingBroken(machine);
            mend(call);
            ExpectNoTemporariesBehindTheNextSaves(machine);
        }
    }

    /// Kills `command` at each thing that a background thread does with a file, each time behind `prepare`,
    /// and runs `mend` afterwards. The command itself then stands ahead of its last change of a file. Below
    /// `tokens` that thread must do at least so many things; a command with a fixed token has none.
    void KillInBackgroundAndMend(const std::vector<Words>& prepare, const Words& command,
                                 const std::function<void()>& mend, const std::string& tokens = "",
                                 int leastOfTokens = 0) {
        const std::string threads = tokens.empty() ? "1" : "2";
        // Of the list of the discovery servers: the staging copy begun and completed, the old one removed,
        // the new one named.
        KillInBackground("v1-service.cache", 4, threads, prepare, command, mend);
        if (tokens.empty()) return;
        KillInBackground("/aa_token", leastOfTokens, threads, prepare, command, mend);
        EXPECT_EQ(machine.Files().count(tokens + "/expired-p"), 0u);
    }
    void KillInBackgroundAndRunAgain(const std::vector<Words>& prepare, const Words& command,
                                     const std::string& tokens = "", int leastOfTokens = 0) {
        KillInBackgroundAndMend(
            prepare, command, [&] { ExpectSuccess(machine.Run(command)); }, tokens, leastOfTokens);
    }

    void KillAndRunAgain(const std::vector<Words>& prepare, const Words& command) {
        KillAndMend(prepare, command, [&](const TracedCall&) { ExpectSuccess(machine.Run(command)); });
    }

private:
    void KillInBackground(const std::string& path, int least, const std::string& threads,
                          const std::vector<Words>& prepare, const Words& command,
                          const std::function<void()>& mend) {
        for (int number = 1;; ++number) {
            SCOPED_TRACE(path + " " + std::to_string(number));
            ASSERT_LT(number, 100) << "hangs in each run, which is killed as well";
            std::filesystem::remove_all(machine.Folder() / CacheFolder);
            for (const Words& words : prepare)
                ExpectSuccess(machine.Run(words));
            // What makes each thread work: no list of the discovery servers, a token that has expired.
            std::filesystem::remove(machine.Folder() / (CacheFolder + "/v1-service.cache-p"));
            for (const std::string& tokens : {TokensOfAdmin, TokensOfClient})
                machine.Folder().Write(tokens + "/expired-p", ExpiredToken);
            Words words{OMBRY_TOOL_BACKGROUND, path, std::to_string(number), threads};
            words.insert(words.end(), command.begin(), command.end());
            const ProcessOutcome outcome = RunProcess(words, {.folder = machine.Folder().Path()});
            if (outcome.exitCode != 137) {
                ExpectSuccess(outcome);
                EXPECT_GT(number, least);
                return;
            }
            EXPECT_LE(TemporariesOf(machine).size(), MostThreads);
            DoctorsWord::ExpectNothingBroken(machine);
            mend();
            ExpectNoTemporariesBehindTheNextSaves(machine);
        }
    }

    /// The command's own, that of the discovery list and that of the tokens; each has one save under way at
    /// the most.
    static constexpr std::size_t MostThreads = 3;
    static inline const std::string ExpiredToken =
        R"({"lastRefreshed":"2020-01-01T00:00:00.0000000Z","token":{"token_type":"Bearer","access_token":"x",)"
        R"("expires_in":1,"scope":"x"},"servicename":"x"})";

protected:
    static inline const std::string TokensOfAdmin = CacheFolder + "/aa_token";
    static inline const std::string TokensOfClient = CacheFolder + "/c1/aa_token";

    const Sandbox sandbox{
        Words{"--install-token", "t", "--cache-control", "max-age=0, stale-while-revalidate=604500"}};
    const Machine machine{};
};

const Words EnrollClient{"enroll-client", "-t", "t", "-nn", "c1"};
const Words EnrollService{"enroll-service", "-t",         "t",  "-owner",    "c1", "-name", "svc", "-url",
                          "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};

const Words Admin{"-u", "admin", "-p", "secret"};

Words AsAdmin(Words words) {
    words.insert(words.begin() + 1, Admin.begin(), Admin.end());
    return words;
}

// What the thread of the tokens does: for each that was used the folder and the four steps of a save; a list,
// each read, both copies of the expired one removed; when the command ends, a list once more and each read.
constexpr int StepsOfTwoTokens = 2 * 5 + (1 + 3 + 2) + (1 + 2);
constexpr int StepsOfOneToken = 5 + (1 + 2 + 2) + (1 + 1);
constexpr int StepsOfNoToken = 1 + 2 + 2 + 1 + 1;

TEST_F(EnrollmentFaultsTest, ClientIsEnrolledByTheRunAfterADeathInTheBackground) {
    KillInBackgroundAndRunAgain({}, EnrollClient);
    KillInBackgroundAndRunAgain({}, AsAdmin({"enroll-client", "-nn", "c1"}), TokensOfAdmin, StepsOfTwoTokens);
}

TEST_F(EnrollmentFaultsTest, ServiceIsEnrolledByTheRunAfterADeathInTheBackground) {
    KillInBackgroundAndRunAgain({EnrollClient}, EnrollService);
    Words asClient = EnrollService;
    asClient[1] = "-n";
    asClient[2] = "c1";
    KillInBackgroundAndRunAgain({EnrollClient}, asClient, TokensOfClient, StepsOfOneToken);
}

TEST_F(EnrollmentFaultsTest, ServiceIsRemovedByTheRunAfterADeathInTheBackground) {
    KillInBackgroundAndRunAgain({EnrollClient, EnrollService},
                                {"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"}, TokensOfClient,
                                StepsOfOneToken);
}

TEST_F(EnrollmentFaultsTest, ClientIsRemovedByTheRunAfterADeathInTheBackground) {
    KillInBackgroundAndRunAgain({EnrollClient}, AsAdmin({"unenroll-client", "-un", "c1"}), TokensOfAdmin,
                                StepsOfTwoTokens);
}

TEST_F(EnrollmentFaultsTest, ClientThatRemovedItselfIsRemovedByAnAdministratorAfterADeathInTheBackground) {
    // The service has forgotten the client, whose tokens are not refreshed any more, before its files go.
    KillInBackgroundAndMend(
        {EnrollClient}, {"unenroll-client-self", "-n", "c1"},
        [&] {
            ExpectSuccess(machine.Run({"unenroll-client", "-t", "t", "-un", "c1"}));
        },
        TokensOfClient, StepsOfNoToken);
}

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
            if (!ToolUnderTest::IsForWindows()) {
                EXPECT_EQ(call.name, "unlink") << call.line;
            }
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

TEST_F(EnrollmentFaultsTest, EnrollmentThatEndsWellWhateverFailedLeavesCredentialsThatCanBeUsed) {
    const auto forget = [&] {
        for (const std::string& folder :
             {std::string("Quennet/Keys"), SecurityFolder + "/Components", SecurityFolder + "/CS-cpp"}) {
            std::filesystem::remove_all(machine.Folder() / folder);
        }
    };
    int failures = 0;
    forget();
    for (const TracedCall& call : TraceOf(machine, EnrollClient)) {
        // All that goes into the credentials; what fails once a file is open goes unreported.
        static const std::regex ingredients("/etc/machine-id|/Keys|/Components");
        static const std::regex unreported("write|fsync|close");
        if (!std::regex_search(call.line, ingredients) || std::regex_match(call.name, unreported)) continue;
        forget();
        const ProcessOutcome outcome = RunWithFate(machine, call, "error=EIO", EnrollClient);
        if (outcome.exitCode == 0) {
            EXPECT_EQ(outcome.error, "") << call.line;
            DoctorsWord::ExpectNothingBroken(machine);
            const ProcessOutcome use = machine.Run({"unenroll-client-self", "-n", "c1"});
            EXPECT_EQ(use.exitCode, 0) << call.line << use.error;
        } else {
            ++failures;
            EXPECT_EQ(outcome.error.find("Caught exception: "), 0u) << call.line << outcome.error;
        }
    }
    EXPECT_GT(failures, 10);
}

}  // namespace
}  // namespace Ombry::Tests
