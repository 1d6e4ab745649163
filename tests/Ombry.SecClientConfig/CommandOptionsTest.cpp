#include "Ombry.SecClientConfig/CommandOptions.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace SecClientConfig;

TEST(TakeOptionTest, LeavesAnotherNameAlone) {
    const CapturedOutput captured;
    std::string target;
    bool error = false;

    EXPECT_FALSE(TakeOption("-u", target, error, "-p", "value"));

    EXPECT_EQ(target, "");
    EXPECT_FALSE(error);
    EXPECT_EQ(captured.Error(), "");
}

TEST(TakeOptionTest, ComparesNamesExactly) {
    std::string target;
    bool error = false;

    for (const std::string arg : {"-U", "u", "-u ", " -u", "-uu", "-", "", "--u"})
        EXPECT_FALSE(TakeOption("-u", target, error, arg, "value")) << '"' << arg << '"';

    EXPECT_EQ(target, "");
    EXPECT_FALSE(error);
}

TEST(TakeOptionTest, CopiesTheValue) {
    const CapturedOutput captured;
    std::string target;
    bool error = false;

    EXPECT_TRUE(TakeOption("-u", target, error, "-u", "value"));

    EXPECT_EQ(target, "value");
    EXPECT_FALSE(error);
    EXPECT_EQ(captured.Error(), "");
}

TEST(TakeOptionTest, KeepsTheFirstValueAndReportsTheSecond) {
    const CapturedOutput captured;
    std::string target = "a";
    bool error = false;

    EXPECT_TRUE(TakeOption("-u", target, error, "-u", "b"));

    EXPECT_EQ(target, "a");
    EXPECT_TRUE(error);
    EXPECT_EQ(captured.Error(), "ERROR: Option -u was specified more than once.\n");
    EXPECT_EQ(captured.Out(), "");
}

TEST(TakeOptionTest, ReportsASecondOccurrenceEvenIfItsValueIsEmptyOrTheSame) {
    const CapturedOutput captured;
    std::string target = "a";
    bool error = false;

    EXPECT_TRUE(TakeOption("-u", target, error, "-u", ""));
    EXPECT_TRUE(error);
    error = false;
    EXPECT_TRUE(TakeOption("-u", target, error, "-u", "a"));
    EXPECT_TRUE(error);

    EXPECT_EQ(target, "a");
}

TEST(TakeOptionTest, EmptyValueLeavesNoTraceSoThatTheSecondIsTaken) {
    const CapturedOutput captured;
    std::string target;
    bool error = false;

    EXPECT_TRUE(TakeOption("-u", target, error, "-u", ""));
    EXPECT_TRUE(TakeOption("-u", target, error, "-u", "b"));

    EXPECT_EQ(target, "b");
    EXPECT_FALSE(error);
    EXPECT_EQ(captured.Error(), "");
}

TEST(TakeOptionTest, NeverClearsAnEarlierError) {
    std::string target;
    bool error = true;

    TakeOption("-u", target, error, "-u", "a");
    TakeOption("-u", target, error, "-p", "a");

    EXPECT_TRUE(error);
}

TEST(RequireOptionTest, ReportsAnEmptyValue) {
    const CapturedOutput captured;
    bool error = false;

    RequireOption("-nn", "", error);

    EXPECT_TRUE(error);
    EXPECT_EQ(captured.Error(), "ERROR: Required option -nn is missing.\n");
    EXPECT_EQ(captured.Out(), "");
}

TEST(RequireOptionTest, AcceptsAValueAndKeepsAnEarlierError) {
    const CapturedOutput captured;
    bool clean = false;
    bool failed = true;

    RequireOption("-nn", "v", clean);
    RequireOption("-nn", "v", failed);

    EXPECT_FALSE(clean);
    EXPECT_TRUE(failed);
    EXPECT_EQ(captured.Error(), "");
}

TEST(CheckIdentityTest, JudgesEveryCombination) {
    struct {
        const char *userName, *password, *clientName, *token;
        std::string message;
    } const cases[] = {
        {"", "", "", "", NoIdentity},
        {"", "", "", "t", ""},
        {"", "", "c", "", ""},
        {"", "", "c", "t", TwoIdentities},
        {"", "p", "", "", HalfIdentity},
        {"", "p", "", "t", HalfIdentity},
        {"", "p", "c", "", HalfIdentity},
        {"", "p", "c", "t", HalfIdentity},
        {"u", "", "", "", HalfIdentity},
        {"u", "", "", "t", HalfIdentity},
        {"u", "", "c", "", HalfIdentity},
        {"u", "", "c", "t", HalfIdentity},
        {"u", "p", "", "", ""},
        {"u", "p", "", "t", TwoIdentities},
        {"u", "p", "c", "", TwoIdentities},
        {"u", "p", "c", "t", TwoIdentities},
    };
    for (const auto& given : cases) {
        const CapturedOutput captured;
        bool error = false;
        CheckIdentity(given.userName, given.password, given.clientName, given.token, error);
        EXPECT_EQ(captured.Error(), given.message)
            << given.userName << '|' << given.password << '|' << given.clientName << '|' << given.token;
        EXPECT_EQ(error, !given.message.empty()) << given.message;
    }
}

TEST(CheckIdentityTest, KeepsAnEarlierError) {
    bool error = true;

    CheckIdentity("", "", "", "t", error);

    EXPECT_TRUE(error);
}

class ReadOptionsTest : public testing::Test {
protected:
    /// Runs `ReadOptions` for the names -u and -p; 1 stands for true.
    ToolRun Read(const std::vector<std::string>& words, const std::string& checkMessage = "") {
        return CallWith(
            [&](int argc, char** argv) {
                return ReadOptions(argc, argv, {{"-u", user}, {"-p", password}}, [&](bool& error) {
                    ++checks;
                    errorBeforeChecks = error;
                    if (!checkMessage.empty()) ReportError(checkMessage, error);
                });
            },
            words);
    }

    std::string user;
    std::string password;
    int checks = 0;
    bool errorBeforeChecks = false;
};

TEST_F(ReadOptionsTest, TakesPairsInAnyOrder) {
    const ToolRun run = Read({"command", "-p", "secret", "-u", "admin"});

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.error, "");
    EXPECT_EQ(user, "admin");
    EXPECT_EQ(password, "secret");
    EXPECT_EQ(checks, 1);
    EXPECT_FALSE(errorBeforeChecks);
}

TEST_F(ReadOptionsTest, NoOptionsAtAllStillRunTheChecks) {
    const ToolRun run = Read({"command"});

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.error, "");
    EXPECT_EQ(checks, 1);
}

TEST_F(ReadOptionsTest, OddCountOfArgumentsEndsAtOnceWithoutAMessage) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"command", "-u"}, {"command", "stray"}, {"command", "-x", "1", "-y", "2", "-u"}}) {
        const ToolRun run = Read(words);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.error, "");
    }
    EXPECT_EQ(user, "");
    EXPECT_EQ(checks, 0);
}

TEST_F(ReadOptionsTest, NeitherPasswordNorTokenIsLeftInTheMemoryThatIsFreed) {
    std::string secret = "a secret too long for a string object";
    for (std::string name : {"-p", "-t"}) {
        std::vector<char*> argv = {nullptr, nullptr, name.data(), secret.data(), nullptr};
        const FreedMemory freed(secret);
        {
            Identity identity;
            ASSERT_TRUE(ReadOptions(4, argv.data(), WithIdentity(identity, {}), [](bool&) {}));
            EXPECT_EQ(name == "-p" ? identity.password : identity.token, secret);
        }
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << name;
    }
}

TEST_F(ReadOptionsTest, ReportsEveryUnknownNameAndStillTakesTheRest) {
    const ToolRun run = Read({"command", "-x", "1", "-u", "admin", "stray", "2"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.error, "ERROR: Unrecognized option -x\nERROR: Unrecognized option stray\n\n");
    EXPECT_EQ(user, "admin");
    EXPECT_EQ(checks, 1);
    EXPECT_TRUE(errorBeforeChecks);
}

TEST_F(ReadOptionsTest, ChecksFollowTheLoopAndABlankLineFollowsThem) {
    const ToolRun run = Read({"command", "-u", "a", "-u", "b"}, "from the checks");

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.error, "ERROR: Option -u was specified more than once.\nERROR: from the checks\n\n");
    EXPECT_EQ(user, "a");
}

TEST_F(ReadOptionsTest, FailedCheckAloneIsAnError) {
    const ToolRun run = Read({"command"}, "from the checks");

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.error, "ERROR: from the checks\n\n");
}

TEST_F(ReadOptionsTest, ValueThatLooksLikeANameIsAValue) {
    const ToolRun run = Read({"command", "-u", "-p", "-p", "-u"});

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(user, "-p");
    EXPECT_EQ(password, "-u");
}

TEST_F(ReadOptionsTest, EmptyNameIsUnknown) {
    const ToolRun run = Read({"command", "", "value"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.error, "ERROR: Unrecognized option \n\n");
}

TEST_F(ReadOptionsTest, HugeOddAndInvalidTextsPassAsTheyAre) {
    const std::string huge(1 << 20, 'x');
    const std::string bytes = "\x01\x1b[31m\xff\xfe\n\t";

    const ToolRun run = Read({"command", "-u", huge, "-p", bytes, huge, "1", bytes, "2"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.error,
              "ERROR: Unrecognized option " + huge + "\nERROR: Unrecognized option " + bytes + "\n\n");
    EXPECT_EQ(user, huge);
    EXPECT_EQ(password, bytes);
}

}  // namespace
}  // namespace Ombry::Tests
