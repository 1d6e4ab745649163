#include "tests/EndToEnd/Machine.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

TEST(SandboxServingTest, ServiceThatCanNoLongerAcceptEndsByItselfAndSaysSo) {
    const TemporaryDirectory state;
    // One that hangs would outlive strace.
    ChildProcess sandbox({"strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=accept,accept4", "-e",
                          "inject=accept,accept4:error=ENOBUFS:when=1", "timeout", "-s", "KILL", "60",
                          OMBRY_SANDBOX_SERVICE, "--state", state.Path()});
    const std::string ready = sandbox.AwaitLine();
    const std::size_t begin = ready.find("https://");
    const std::string url = ready.substr(begin, ready.find('"', begin) - begin);

    EXPECT_NE(ChildProcess({"curl", "-sk", url + "/v1/ddb/datacenters"}).Wait().exitCode, 0);

    const ProcessOutcome& outcome = sandbox.Wait();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.error, "ombry-sandbox: Connections can no longer be accepted.\n");
}

}  // namespace
}  // namespace Ombry::Tests
