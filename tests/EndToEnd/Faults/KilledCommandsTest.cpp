// Each command that changes a machine, ended ahead of each change of a file that it makes: the same on Linux
// and below Wine.

#include "tests/EndToEnd/Faults/DoctorsWord.h"
#include "tests/EndToEnd/Faults/Leftovers.h"
#include "tests/EndToEnd/Sandbox.h"

#include <functional>

namespace Ombry::Tests {
namespace {

class KilledCommandsTest : public testing::Test {
protected:
    static inline const std::string Component = SecurityFolder + "/Components/c1";
    static inline const std::string Credentials = Component + "/ombrycomponent.config";
    static inline const std::string Record = Component + "/Services/svc.config";
    static inline const Words Enroll{"enroll-client", "-t", "t", "-nn", "c1"};
    static inline const Words Unenroll{"unenroll-client", "-t", "t", "-un", "c1"};
    static inline const Words UnenrollSelf{"unenroll-client-self", "-n", "c1"};
    static inline const Words Publish{
        "enroll-service", "-n",         "c1", "-owner",    "c1", "-name", "svc", "-url",
        "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};
    static inline const Words Withdraw{"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"};
    const Sandbox sandbox{Words{"--install-token", "t"}};
    const Machine machine{};
    const Words configure{"configure-bootstrap-url", "-t", "t", "-dn", "Sandbox", "-r", sandbox.Url()};

    /// Ends `command` ahead of its first change, its second and so on, each time behind `prepare`, until it
    /// makes no more, and calls `mend` each time. It has at least so many.
    void KillEverywhere(const Words& command, int least, const std::function<void()>& prepare,
                        const std::function<void()>& mend) {
        for (int number = 1;; ++number) {
            SCOPED_TRACE(command[0] + " ahead of change " + std::to_string(number));
            prepare();
            Words words = ToolUnderTest::Program(OMBRY_TOOL_KILLED);
            words.push_back(std::to_string(number));
            words.insert(words.end(), command.begin(), command.end());
            const ProcessOutcome outcome = RunProcess(words, {.folder = machine.Folder().Path()});
            if (outcome.exitCode == 0) {
                EXPECT_GT(number, least);
                return;
            }
            ASSERT_EQ(outcome.exitCode, 137) << outcome.error;
            DoctorsWord::ExpectTruth(machine, {"enroll-client", "-t", "t", "-nn", "next"});
            mend();
            ExpectNoTemporariesBehindTheNextSaves(machine);
        }
    }

    /// A command that makes good whatever was left.
    std::function<void()> Run(const Words& words) {
        return [=, this] { ExpectSuccess(machine.Run(words)); };
    }

    void Forget(const std::string& path) const { std::filesystem::remove_all(machine.Folder() / path); }
    bool Has(const std::string& file) const { return std::filesystem::exists(machine.Folder() / file); }

    /// Enrolls the client, without the tokens of an earlier one of the name: the service would refuse them.
    void EnrollAnew() {
        Forget(CacheFolder + "/c1/aa_token");
        ExpectSuccess(machine.Run(Enroll));
    }

    /// Whatever stands of the identity is the whole of one, known to the service or forgotten there.
    void ExpectWholeIdentity() {
        if (!Has(Credentials)) return;
        Forget(CacheFolder + "/c1/aa_token");
        const ProcessOutcome use = machine.Run({"unenroll-service", "-n", "c1", "-on", "c1", "-s", "none"});
        EXPECT_TRUE(use.exitCode == 0 || use.error.find(" 401") != std::string::npos) << use.error;
    }
    void ExpectWholeRecord() const {
        if (!Has(Record)) return;
        static const std::regex whole(R"(\{\s+"Version": "1.0",\s+"Guid": "[0-9a-f-]{36}"\s+\})");
        EXPECT_TRUE(std::regex_match(machine.Folder().Read(Record), whole)) << machine.Folder().Read(Record);
    }
};

TEST_F(KilledCommandsTest, MachineIsConfiguredByTheNextRun) {
    KillEverywhere(
        configure, 5, [&] { Forget("Quennet"); }, Run(configure));
    EXPECT_EQ(machine.Files(), ConfiguredTree(sandbox.Url(), Sandbox::DatacenterId, sandbox.Certificate()));
}

TEST_F(KilledCommandsTest, ClientOfAnyNameIsEnrolledByTheNextRun) {
    ExpectSuccess(machine.Run(configure));
    const auto mend = [&] {
        ExpectWholeIdentity();
        EnrollAnew();
        ExpectSuccess(machine.Run(Withdraw));
    };
    KillEverywhere(
        Enroll, 2, [&] { Forget(Component); }, mend);
    KillEverywhere(
        Enroll, 2, [] {}, mend);  // an earlier one of the name goes
}

TEST_F(KilledCommandsTest, ServiceIsEnrolledAndRemovedByTheNextRun) {
    ExpectSuccess(machine.Run(configure));
    EnrollAnew();
    const auto mend = [&] {
        ExpectWholeRecord();
        ExpectSuccess(machine.Run(Publish));
    };
    KillEverywhere(
        Publish, 2, [&] { Forget(Record); }, mend);
    KillEverywhere(
        Publish, 2, [] {}, mend);
    KillEverywhere(Withdraw, 1, Run(Publish), Run(Withdraw));
    EXPECT_FALSE(Has(Record));
}

TEST_F(KilledCommandsTest, ClientIsRemovedByTheNextRunOrByAnAdministratorOnceTheServiceForgotIt) {
    ExpectSuccess(machine.Run(configure));
    const auto prepare = [&] { EnrollAnew(); };
    KillEverywhere(Unenroll, 1, prepare, Run(Unenroll));
    KillEverywhere(UnenrollSelf, 1, prepare, [&] {
        ExpectWholeIdentity();
        if (machine.Run(UnenrollSelf).exitCode != 0) ExpectSuccess(machine.Run(Unenroll));
        EXPECT_FALSE(Has(Credentials));
    });
}

}  // namespace
}  // namespace Ombry::Tests
