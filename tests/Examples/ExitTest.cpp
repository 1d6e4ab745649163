// Programs that end while a facade and its threads are alive.

#include "tests/EndToEnd/Sandbox.h"

#include <algorithm>

namespace Ombry::Tests {
namespace {

class ExitTest : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Ways, ExitTest,
                         testing::Values("global", "global-gateway", "static-local", "other-thread"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST_P(ExitTest, ProcessEndsWithItsExitCodeWhateverIsAlive) {
    const Sandbox sandbox;
    const Machine machine{};
    ExpectSuccess(machine.Run(
        {"configure-bootstrap-url", "-u", "admin", "-p", "secret", "-dn", "Sandbox", "-r", sandbox.Url()}));
    ExpectSuccess(machine.Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", "robot"}));

    Words words = ToolUnderTest::Program(OMBRY_EXIT_WITH_FACADE_HERE);
    words.insert(words.end(), {GetParam(), "robot", "v1-service", "/services/services/secure/name/robots"});
    const ProcessOutcome outcome = RunProcess(words, {.folder = machine.Folder().Path()});

    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.exitCode, 7);
}

}  // namespace
}  // namespace Ombry::Tests
