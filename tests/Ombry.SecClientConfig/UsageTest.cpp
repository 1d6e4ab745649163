#include "Ombry.SecClientConfig/CommandTable.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace SecClientConfig;

class UsageTest : public testing::TestWithParam<std::string> {
protected:
    UsageTest() { RegisterCommands(); }

    static ToolRun Usage(bool toError) {
        return CallWith([&](int, char**) { return Commands().at(GetParam())->Usage(toError); }, {});
    }
};

TEST_P(UsageTest, GoesToTheErrorStreamAsAFailure) {
    const ToolRun run = Usage(true);

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.error, Usages.at(GetParam()));
    EXPECT_EQ(run.out, "");
}

TEST_P(UsageTest, GoesToTheOutputAsASuccess) {
    const ToolRun run = Usage(false);

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, Usages.at(GetParam()));
    EXPECT_EQ(run.error, "");
}

TEST_P(UsageTest, HelpPrintsItOnTheOutput) {
    const ToolRun run = Tool({"help", GetParam()});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, Usages.at(GetParam()));
    EXPECT_EQ(run.error, "");
}

TEST_P(UsageTest, OptionWithoutAValueEndsWithItAloneOnTheErrorStream) {
    const ToolRun run = Tool({GetParam(), "-n"});

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.error, Usages.at(GetParam()));
    EXPECT_EQ(run.out, "");
}

INSTANTIATE_TEST_SUITE_P(Commands, UsageTest,
                         testing::Values("get-datacenters", "configure-bootstrap-url", "enroll-client",
                                         "enroll-service", "unenroll-client-self", "unenroll-client",
                                         "unenroll-service"));

}  // namespace
}  // namespace Ombry::Tests
