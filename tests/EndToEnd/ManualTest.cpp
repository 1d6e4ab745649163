// What the manual says of things that go wrong without a word, and its remedies, each tried.

#include "tests/EndToEnd/Sandbox.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace Ombry::Tests {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class ManualTest : public testing::Test {
protected:
    ManualTest() {
        ExpectSuccess(machine.Run(
            {"configure-bootstrap-url", "-t", "t", "-d", Sandbox::DatacenterId, "-r", sandbox.Url()}));
    }

    ProcessOutcome EnrollClient() {
        return machine.Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", "printer"});
    }
    ProcessOutcome EnrollService() {
        return machine.Run({"enroll-service", "-n", "printer", "-owner", "printer", "-name", "v1-print",
                            "-url", "https://h:1/x", "-namespace", "ns", "-hostname", "h"});
    }

    /// What was asked for about registered services, each as the method alone.
    Words ServiceCalls() {
        std::istringstream log(sandbox.Requests());
        Words methods;
        for (std::string line; std::getline(log, line);) {
            if (line.find("/v1/services/services") != std::string::npos)
                methods.push_back(line.substr(0, line.find(' ')));
        }
        return methods;
    }

    Sandbox sandbox{{"--cache-control", "max-age=300, stale-while-revalidate=600"}};
    Machine machine;
};

TEST_F(ManualTest, ServiceIsRegisteredTwiceWhileTheCachedSearchIsFresh) {
    ExpectSuccess(EnrollClient());
    ExpectSuccess(EnrollService());
    ExpectSuccess(EnrollService());
    EXPECT_THAT(ServiceCalls(), ElementsAre("POST", "POST"));
}

TEST_F(ManualTest, WithoutTheFinderCacheTheEarlierRegistrationIsRemovedFirst) {
    ExpectSuccess(EnrollClient());
    ExpectSuccess(EnrollService());
    ASSERT_GT(std::filesystem::remove_all(std::filesystem::path(machine.Folder().Path()) / SecurityFolder /
                                          "CS-cpp/cache/printer/finder_cache"),
              1u);
    ExpectSuccess(EnrollService());
    EXPECT_THAT(ServiceCalls(), ElementsAre("POST", "DELETE", "POST"));
}

TEST_F(ManualTest, ClientThatEnrollsItselfAnewIsGone_UntilSomebodyElseEnrollsIt) {
    ExpectSuccess(EnrollClient());
    const ProcessOutcome outcome = machine.Run({"enroll-client", "-n", "printer", "-nn", "printer"});
    EXPECT_EQ(outcome.exitCode, 255);
    EXPECT_THAT(outcome.error, HasSubstr("EnrollClient: unexpected http status 401"));
    EXPECT_FALSE(machine.Files().contains(SecurityFolder + "/Components/printer/ombrycomponent.config"));

    ExpectSuccess(EnrollClient());
    EXPECT_TRUE(machine.Files().contains(SecurityFolder + "/Components/printer/ombrycomponent.config"));
}

TEST_F(ManualTest, LineBreakBehindTheDatacenterIdMakesTheServiceMisreadRequests_UntilItIsTakenAway) {
    machine.Folder().Write(DatacenterFile, Sandbox::DatacenterId + "\n");
    const ProcessOutcome outcome = EnrollClient();
    EXPECT_EQ(outcome.exitCode, 255);
    // Which of the requests it is that the service cannot read depends on its HTTP library.
    EXPECT_THAT(outcome.error, AnyOf(HasSubstr("code 400"), HasSubstr("HTTP error 400")));

    machine.Folder().Write(DatacenterFile, Sandbox::DatacenterId);
    ExpectSuccess(EnrollClient());
}

TEST_F(ManualTest, AddressInCapitalsIsCalledInClearText) {
    std::string url = sandbox.Url();
    ASSERT_THAT(url, StartsWith("https://"));
    url.replace(0, 5, "HTTPS");
    // A server of TLS gets what it cannot read, and closes.
    ExpectException(machine.Run({"get-datacenters", "-u", "admin", "-p", "secret", "-r", url}), "Error 11.0");
    Sandbox inTheClear({"--plain-http"});
    url = inTheClear.Url();
    url.replace(0, 4, "HTTPS");
    ExpectSuccess(machine.Run({"get-datacenters", "-u", "admin", "-p", "secret", "-r", url}),
                  Sandbox::DatacenterId + "\tSandbox\n");
}

}  // namespace
}  // namespace Ombry::Tests
