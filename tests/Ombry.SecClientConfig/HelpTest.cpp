#include "Ombry.SecClientConfig/CommandTable.h"
#include "Ombry.SecClientConfig/Help.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace SecClientConfig;

TEST(HelpTest, BareHelpIsAnErrorExitOnPurpose) {
    ExpectGeneralHelpAsError({"help"});
}

TEST(HelpTest, HelpAboutAnUnknownWordIsAnErrorThatNamesNoWord) {
    ExpectGeneralHelpAsError({"help", "nosuch"});
    ExpectGeneralHelpAsError({"help", "Enroll-Client"});
    ExpectGeneralHelpAsError({"help", ""});
}

TEST(HelpTest, WordBehindAnUnknownWordIsNotLookedAt) {
    ExpectGeneralHelpAsError({"help", "nosuch", "enroll-client"});
}

TEST(HelpTest, HelpAboutHelpIsASuccess) {
    const ToolRun run = Tool({"help", "help"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, GeneralHelp);
    EXPECT_EQ(run.error, "");
}

TEST(HelpTest, FurtherArgumentsAreIgnored) {
    const ToolRun run = Tool({"help", "enroll-client", "extra"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, Usages.at("enroll-client"));
    EXPECT_EQ(run.error, "");
}

TEST(HelpTest, ListIsTheTableAndNotAFixedText) {
    Commands().clear();
    RegisterCommand(std::make_shared<Help>());

    const ToolRun run = CallWith(Dispatch, {});
    Commands().clear();

    EXPECT_EQ(run.error,
              "Ombry.SecClientConfig command options\n\nwhere command is one of:\n    help\n"
              "\nFor help with individual commands, type:\n    Ombry.SecClientConfig help command\n");
}

}  // namespace
}  // namespace Ombry::Tests
