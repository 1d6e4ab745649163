// The commands that need no configured machine, and those that fail for a reason of their own, with each
// allocation, each start of a thread and each call of the platform failing.

#include "tests/Fakes/Linux/BootstrapService.h"
#include "tests/NthFailure/FailingPlatform.h"
#include "tests/NthFailure/StarvedRun.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <filesystem>
#include <set>

namespace Ombry::Tests {
namespace {

using Texts = std::vector<std::string>;

class BootstrapWorld {
public:
    std::string Content(const std::string& file) const {
        return service.directory.Read("Quennet/OmbrySecurity/" + file);
    }
    std::size_t Certificates() const {
        const std::filesystem::directory_iterator store(service.Path("CertificateStores/OmbrySecurity"));
        return static_cast<std::size_t>(std::distance(begin(store), end(store)));
    }

    BootstrapService service{false};
    UndisturbedClock clock;
    FailingPlatform platform{{.sockets = true}};
};

TEST(NthFailureOfBootstrapCommandsTest, DatacentersAreListedWholeOrNotAtAll) {
    FailEverywhere(0, [](const NthFailure::Plan& plan) {
        BootstrapWorld world;
        const StarvedRun run = RunStarved({"get-datacenters", "-u", "u", "-p", "p", "-r", "http://h"}, plan);
        EXPECT_EQ(run.exitCode, run.error.empty() ? 0 : -1);
        EXPECT_EQ(run.out, run.exitCode == 0 ? "i1\tone\ni2\ttwo\n" : "") << run.error;
        return run.happened;
    });
}

TEST(NthFailureOfBootstrapCommandsTest, CommandThatIsRefusedEndsAsItWouldOrForLackOfWhatFailed) {
    for (const Texts& words : {Texts{"get-datacenters", "-t", "t", "-r", "http://h:port"}, Texts{"unknown"},
                               Texts{"get-datacenters", "-x"}, Texts{"help"}, Texts{}}) {
        FailEverywhere(0, [&](const NthFailure::Plan& plan) {
            BootstrapWorld world;
            const StarvedRun run = RunStarved(words, plan);
            EXPECT_NE(run.out + run.error, "");
            EXPECT_TRUE(run.exitCode == 0 || run.exitCode == -1);
            return run.happened;
        });
    }
}

}  // namespace
}  // namespace Ombry::Tests
