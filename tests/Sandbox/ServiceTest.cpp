// Where the service listens, and that it serves every call.

#include "tests/Fakes/LeftOut.h"
#include "tests/Sandbox/ServiceFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests::SandboxService {
namespace {

using testing::HasSubstr;

TEST_F(SandboxServiceTest, EveryCallIsServedBelowTheBasePath) {
    Start({"--datacenters-need-token"});
    EXPECT_EQ(service->BaseUrl(), "http://127.0.0.1:" + std::to_string(port) + "/b");
    const std::vector<std::pair<Question, int>> calls = EveryCall();
    EXPECT_EQ(calls.size(), Sandbox::Calls::All().size());
    for (const auto& [question, status] : calls)
        EXPECT_EQ(Ask(question).status, status) << question.method << " " << question.path;
}

TEST_F(SandboxServiceTest, BodyAndPathReachTheCallAndTheQueryDoesNot) {
    Start();
    Enroll("c");
    EXPECT_EQ(Delete("/v1/auth/clients/c", UserToken("v1-auth")).status, 204);
    // Parameters of the address are none of the form.
    EXPECT_EQ(Post(UserTokens + "?" + FormOf("v1-auth"), Basic("admin:secret"), "a=b", FormType).status, 400);
}

TEST_F(SandboxServiceTest, IPv6AddressStandsInBracketsInTheBaseUrl) {
    if (LoopbackListener(true).Port() == 0) return LeaveOut("this machine has no IPv6");
    Start({"--address", "::1"});
    EXPECT_EQ(service->BaseUrl(), "http://[::1]:" + std::to_string(port) + "/b");
    EXPECT_EQ(Get(Datacenters).status, 200);
    EXPECT_THAT(Get("/services/services/nonsecure/name/ssds").body, HasSubstr(R"("serviceHostname":"::1")"));
}

TEST_F(SandboxServiceTest, BasePathIsNoPattern) {
    Start({"--base-path", "/a.b"});
    EXPECT_EQ(Get(Datacenters).status, 200);
    askedBasePath = "/aXb";
    EXPECT_EQ(Get(Datacenters).status, 404);
}

TEST_F(SandboxServiceTest, StoppedInstanceIsListedNoMore) {
    Start();
    EXPECT_EQ(state.Instances().size(), 1u);
    Stop();
    EXPECT_TRUE(state.Instances().empty());
}

}  // namespace
}  // namespace Ombry::Tests::SandboxService
