// Whole commands on a service that shows a key that is not the pinned one.

#include "tests/Fakes/Linux/TlsStream.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

#include <mutex>

namespace Ombry::Tests {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;
using Durations = std::vector<Duration>;

const Texts EnrollNew{"enroll-client", "-t", "t", "-nn", "New"};

TlsServerRecipe ServerWithKey(const std::string& name) {
    TlsServerRecipe server;
    CertificateRecipe recipe;
    recipe.key = server.key = KeyNamed(name);
    recipe.serial = 2;
    server.certificate = MakeCertificate(recipe);
    return server;
}

class PinnedKeyTest : public testing::Test, protected ConfiguredMachine {
protected:
    PinnedKeyTest() : ConfiguredMachine(DerOf(MakeCertificate({}))) {}
};

TEST_F(PinnedKeyTest, AnotherKeyEndsTheCommandAtItsLimitAndChangesNothing) {
    const TimePoint start = clock.Now();
    std::mutex mutex;
    Durations passed;
    LoopbackServer changed(
        [&](LoopbackServer::Connection& connection) {
            {
                std::lock_guard guard(mutex);
                passed.push_back(clock.Now() - start);
            }
            connection.ReadRequest();
        },
        ServerWithKey("ec256"));
    TieTo(changed.Url());
    const auto before = files.Contents();

    const ToolRun run = Tool(EnrollNew);

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.error, "Caught exception: Operation timed out.\n");
    EXPECT_EQ(clock.Now() - start, Duration(300s));
    // Each attempt is two connections; the waits between attempts double up to 30 seconds.
    Durations expected;
    for (const int second : {0, 1, 3, 7, 15, 31, 61, 91, 121, 151, 181, 211, 241, 271})
        expected.insert(expected.end(), 2, std::chrono::seconds(second));
    ASSERT_EQ(changed.Connections(), expected.size());  // nobody waits for the ends of fewer
    changed.AwaitEnds(expected.size());
    EXPECT_EQ(passed, expected);
    EXPECT_EQ(changed.Requests(), Texts());
    EXPECT_EQ(files.Contents(), before);
    EXPECT_EQ(web.Summaries(), Texts());
}

TEST_F(PinnedKeyTest, RenewedCertificateOfThePinnedKeyIsTrusted) {
    LoopbackServer renewed(
        LoopbackServer::Answering(LoopbackServer::Response("{\"local\": [], \"remote\": []}")),
        ServerWithKey("rsa2048"));
    TieTo(renewed.Url());

    EXPECT_EQ(Tool(EnrollNew).error, "Caught exception: No IServiceResponse from any servers.\n");

    EXPECT_EQ(renewed.Requests().size(), 1u);
}

}  // namespace
}  // namespace Ombry::Tests
