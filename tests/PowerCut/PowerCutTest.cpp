// The power is cut behind each command, and inside one. What a copy of the disk of that moment holds is what
// the machine finds when the power is back.

#include "tests/Doctor/EndToEnd/Patient.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/PowerCut/Disk.h"

#include <optional>

namespace Ombry::Tests {
namespace {

const std::string Caches = SecurityFolder + "/CS-cpp";

Words AsAdmin(Words words) {
    words.insert(words.begin() + 1, {"-u", "admin", "-p", "secret"});
    return words;
}

bool IsUnnamed(const std::string& path) {
    return path.ends_with(".tmp");  // a save that never got its name
}

/// What must survive a power cut: identity, trust and configuration.
Tree StateOf(Tree tree) {
    std::erase_if(tree, [](const auto& entry) {
        return entry.first.starts_with(Caches) || !entry.first.starts_with("Quennet") ||
               IsUnnamed(entry.first);
    });
    return tree;
}

/// A cache entry that is there is the whole of one that was saved.
void ExpectWholeCaches(const Tree& tree) {
    for (const auto& [path, content] : tree) {
        if (!path.starts_with(Caches) || IsUnnamed(path) || content == "700/") continue;
        EXPECT_TRUE(content.starts_with("600 {\n") && content.ends_with("\n}"))
            << path << ": " << content.size() << " bytes, " << content;
    }
}

class PowerCutTest : public testing::TestWithParam<FileSystem> {
protected:
    void SetUp() override {
        try {
            disk.emplace(GetParam());
        } catch (const std::runtime_error& failure) {
            LeaveOut("No power is cut on " + std::string(GetParam().name) + ": " + failure.what());
        }
    }

    ProcessOutcome Run(Words words) const {
        words.insert(words.begin(), OMBRY_TOOL_HERE);
        return RunProcess(words, {.folder = disk->Folder()});
    }
    Tree Files() const { return TreeOf(disk->Folder()); }

    Words Configure() const {
        return AsAdmin({"configure-bootstrap-url", "-dn", "Sandbox", "-r", sandbox.Url()});
    }

    /// Cuts the power behind `command`, at several moments. What the command left must be there each time,
    /// and `next` must do its work.
    void CutBehind(const std::vector<Words>& before, const Words& command, const Words& next) {
        for (const Words& words : before)
            ExpectSuccess(Run(words));
        ExpectSuccess(Run(command));
        struct Moment {
            std::string name;
            std::string image;
            Tree files;
        };
        std::vector<Moment> moments;
        const auto cut = [&](const std::string& name) { moments.push_back({name, disk->Cut(), Files()}); };
        cut("right behind the command");
        disk->Commit();
        cut("when the file system has committed by itself");
        ExpectSuccess(Run(Configure()));
        ExpectSuccess(Run({"enroll-client", "-t", "t", "-nn", "other"}));
        cut("behind another command");
        for (const Moment& moment : moments) {
            SCOPED_TRACE(moment.name);
            disk->Restart(moment.image);
            const Tree left = Files();
            EXPECT_EQ(StateOf(left), StateOf(moment.files));
            ExpectWholeCaches(left);
            ExpectTruth(next);
        }
    }

    /// The next command works on what the cut has left, and so the doctor finds nothing broken there; and
    /// what it advises makes all well, on a copy.
    void ExpectTruth(const Words& next) const {
        const Verdict verdict = Examine(disk->Folder());
        const TemporaryDirectory copy;
        ASSERT_EQ(RunProcess({"cp", "-a", disk->Folder() + "/.", copy.Path()}).exitCode, 0);
        const ProcessOutcome outcome = Run(next);
        EXPECT_EQ(outcome.exitCode == 0, !verdict.IsBroken()) << outcome.error << verdict.Text();
        ExpectSuccess(outcome);
        TypeRemedies(copy.Path(), verdict, sandbox.Url());
        const Verdict mended = Examine(copy.Path());
        EXPECT_TRUE(mended.IsFine()) << verdict.Text() << "and then\n" << mended.Text();
    }

    std::optional<Disk> disk;
    const Sandbox sandbox{Words{"--install-token", "t"}};
};

const Words EnrollClient = AsAdmin({"enroll-client", "-nn", "c1"});
const Words EnrollService{"enroll-service", "-n",         "c1", "-owner",    "c1", "-name", "svc", "-url",
                          "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};
const Words UnenrollService{"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"};
const Words UnenrollSelf{"unenroll-client-self", "-n", "c1"};

TEST_P(PowerCutTest, MachineThatWasTiedToAServiceStaysTiedToIt) {
    CutBehind({}, Configure(), EnrollClient);
}

TEST_P(PowerCutTest, ClientThatWasEnrolledCanEnrollAService) {
    CutBehind({Configure()}, EnrollClient, EnrollService);
}

TEST_P(PowerCutTest, ClientThatWasEnrolledAgainIsTheNewOne) {
    CutBehind({Configure(), EnrollClient}, EnrollClient, EnrollService);
}

TEST_P(PowerCutTest, ServiceThatWasEnrolledCanBeRemoved) {
    CutBehind({Configure(), EnrollClient}, EnrollService, UnenrollService);
}

TEST_P(PowerCutTest, ServiceThatWasRemovedStaysRemoved) {
    CutBehind({Configure(), EnrollClient, EnrollService}, UnenrollService, EnrollService);
}

TEST_P(PowerCutTest, ClientThatRemovedItselfStaysRemoved) {
    CutBehind({Configure(), EnrollClient}, UnenrollSelf, EnrollClient);
}

TEST_P(PowerCutTest, ClientThatWasRemovedStaysRemoved) {
    CutBehind({Configure(), EnrollClient}, AsAdmin({"unenroll-client", "-un", "c1"}), EnrollClient);
}

TEST_P(PowerCutTest, CommandThatTheCutEndsAtAnyNameOfAFileIsDoneByTheNextRun) {
    ExpectSuccess(Run(Configure()));
    int number = 0;
    for (int exitCode = 137; exitCode == 137;) {
        SCOPED_TRACE("rename " + std::to_string(++number));
        for (const std::string& folder :
             {Caches, SecurityFolder + "/Components", std::string("Quennet/Keys")})
            std::filesystem::remove_all(disk->Folder() + "/" + folder);
        disk->Commit();
        Words words{
            "strace",       "-qq",          "-o", "/dev/null",
            "-e",           "trace=rename", "-e", "inject=rename:signal=KILL:when=" + std::to_string(number),
            OMBRY_TOOL_HERE};
        words.insert(words.end(), EnrollClient.begin(), EnrollClient.end());
        exitCode = RunProcess(words, {.folder = disk->Folder()}).exitCode;
        disk->Commit();
        disk->Restart(disk->Cut());
        ExpectWholeCaches(Files());
        ExpectTruth(EnrollClient);
    }
    // Five entries of caches, each staged and named, and the credentials.
    EXPECT_EQ(number, 5 * 2 + 1 + 1);
}

INSTANTIATE_TEST_SUITE_P(, PowerCutTest, testing::ValuesIn(FileSystems),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
}  // namespace Ombry::Tests
