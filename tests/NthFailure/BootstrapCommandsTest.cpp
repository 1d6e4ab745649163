// The commands that need no configured machine, and those that fail for a reason of their own, with each
// allocation, each start of a thread and each call of the platform failing; the one that ties a machine
// with the allocations of the crypto library as well.

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "Platform/Base64Text.h"
#include "tests/Fakes/Linux/BootstrapService.h"
#include "tests/NthFailure/FailingPlatform.h"
#include "tests/NthFailure/QuickestServer.h"
#include "tests/NthFailure/StarvedRun.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <algorithm>
#include <filesystem>

namespace Ombry::Tests {
namespace {

using Texts = std::vector<std::string>;

// Of the connections of the gateway, and of the one beside them that is made for the sake of its certificate
// and is not tried again: broken, or silent; refused, too, where the list before it came to its last byte.
const std::set<std::string> NotListed{"Caught exception: Error 11.0\n", "Caught exception: Error 11.13\n"};
const std::set<std::string> NotTied{"Caught exception: Error 11.0\n", "Caught exception: Error 11.13\n",
                                    "Caught exception: Unable to connect to new:443 due to error 1\n",
                                    "Caught exception: Unable to connect to new:443 due to error 11\n",
                                    "Caught exception: Unable to connect to new:443 due to error 13\n"};

class BootstrapWorld {
public:
    BootstrapWorld() { PassTheTimeOfWaits(service.sockets); }
    /// The service shows this certificate.
    explicit BootstrapWorld(const TlsServerRecipe& server) : service(server.certificate, server.key) {
        PassTheTimeOfWaits(service.sockets);
    }

    BootstrapService service{false};
    JumpingClock clock;
    FailingPlatform platform{{.sockets = true}};
};

/// One run of `get-datacenters`, with a call for a token before the one for the list.
bool ListStarved(const BootstrapWorld&, const char* url, const NthFailure::Plan& plan) {
    const StarvedRun run = RunStarved({"get-datacenters", "-u", "u", "-p", "p", "-r", url}, plan);
    EXPECT_EQ(run.exitCode, run.error.empty() ? 0 : -1);
    EXPECT_EQ(run.out, run.exitCode == 0 ? "i1\tone\ni2\ttwo\n" : "") << run.error;
    ExpectStatedIfCut(plan, run, NotListed);
    return run.happened;
}

TEST(NthFailureOfBootstrapCommandsTest, DatacentersAreListedWholeOrNotAtAll) {
    FailEverywhere(
        0, [](const NthFailure::Plan& plan) { return ListStarved(BootstrapWorld(), "http://h", plan); });
}

TEST(NthFailureOfBootstrapCommandsTest, DatacentersAreListedOverTlsWholeOrNotAtAll) {
    const auto once = [](const NthFailure::Plan& plan) {
        return ListStarved(BootstrapWorld(QuickestServer(1)), "https://h", plan);
    };
    once({});
    FailEachByte(0, TlsWidth, once);
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

/// A machine on the real disk and a service that shows a certificate of its own.
class TlsWorld {
public:
    TlsWorld(const TemporaryDirectory& machine, long serial)
        : machine(machine),
          service(QuickestServer(serial).certificate, QuickestServer(serial).key),
          folders(machine.Path()) {
        // Whoever could not send waits for an answer until the silence has lasted too long.
        service.sockets.OnIdle(
            [this](std::int64_t milliseconds) { time.Advance(std::chrono::milliseconds(milliseconds)); });
    }

    std::string Address() const { return machine.Read("Quennet/OmbrySecurity/ombrysecurity.config"); }
    std::string Datacenter() const { return machine.Read("Quennet/OmbrySecurity/CS/datacenterid.config"); }
    /// Base64 of the certificate that the machine trusts; empty for none.
    std::string Trusted() const {
        try {
            return ClientCommunications::getBootstrapSsdsCertificate(
                ClientCommunications::CommunicationsParameters(""));
        } catch (const std::runtime_error&) {
            return "";
        }
    }
    std::string Shown() const {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(service.certificate.data());
        return *Platform::Base64Text({bytes, service.certificate.size()});
    }

private:
    const TemporaryDirectory& machine;
    BootstrapService service;
    FakeKnownFolders folders;
    FakeClock time;
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Testing::Replace<Platform::IClock> replacedTime{time};
    JumpingClock clock;
};

TEST(NthFailureOfBootstrapCommandsTest, MachineIsTiedOrKeepsItsFilesWholeAndTheNextRunTiesIt) {
    const Texts words{"configure-bootstrap-url", "-t", "t", "-d", "i2", "-r", "https://new/x"};
    const std::string newAddress = "{\n    \"ssdsUri\": \"https://new/x\"\n}";
    const std::string oldAddress = "{\n    \"ssdsUri\": \"https://old/x\"\n}";
    // One folder for all runs: a process remembers those that it has swept.
    const TemporaryDirectory machine;
    const TemporaryDirectory before;
    const auto copyAll = std::filesystem::copy_options::recursive;
    std::string oldTrusted;
    {
        const TlsWorld world(machine, 1);
        ASSERT_EQ(Tool({"configure-bootstrap-url", "-t", "t", "-d", "i1", "-r", "https://old/x"}).error, "");
        oldTrusted = world.Trusted();
        std::filesystem::copy(machine.Path(), before.Path(), copyAll);
    }
    // What was left behind once, and was seen to be mended by the next run; room for all.
    std::vector<std::string> proven;
    proven.reserve(100);

    const auto once = [&](const NthFailure::Plan& plan) {
        std::filesystem::remove_all(machine / "Quennet");
        std::filesystem::copy(before.Path(), machine.Path(), copyAll);
        const TlsWorld world(machine, 2);
        const auto isTied = [&] {
            return world.Trusted() == world.Shown() && world.Address() == newAddress &&
                   world.Datacenter() == "i2";
        };
        StarvedRun run;
        bool hasFailedUnseen = false;
        {
            const FailingPlatform platform{{.sockets = true}};
            run = RunStarved(words, plan);
            hasFailedUnseen = platform.HasFailedUnseen();
        }

        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.exitCode, run.error.empty() ? 0 : -1) << run.error;
        ExpectStatedIfCut(plan, run, NotTied);
        if (run.exitCode == 0 && !hasFailedUnseen) {
            // A certificate whose name cannot be read is no candidate, and stays: which of the two is found
            // then is up to the order of the store. The next run removes both.
            if (world.Trusted() == oldTrusted) {
                EXPECT_EQ(Tool(words).error, "");
            }
            EXPECT_TRUE(isTied());
            return run.happened;
        }
        EXPECT_TRUE(run.exitCode == 0 || run.error.starts_with("Caught exception: ")) << run.error;
        const std::string trusted = world.Trusted(), address = world.Address(), id = world.Datacenter();
        EXPECT_TRUE(trusted == "" || trusted == oldTrusted || trusted == world.Shown()) << trusted;
        EXPECT_TRUE(address == oldAddress || address == newAddress) << address;
        EXPECT_TRUE(id == "i1" || id == "i2") << id;
        // The address never leads to a service that is not trusted yet.
        EXPECT_TRUE(address == oldAddress || trusted == world.Shown());
        const std::string state = (trusted == world.Shown() ? "shown" : trusted) + "\n" + address + "\n" + id;
        if (std::ranges::count(proven, state) == 0) {
            proven.push_back(state);
            EXPECT_EQ(Tool(words).error, "") << "after " << run.error;
            EXPECT_TRUE(isTied());
        }
        return run.happened;
    };
    FailEverywhere(0, once, TlsWidth);
    FailEach(NthFailure::Of::CryptoAllocation, 0, once);
}

}  // namespace
}  // namespace Ombry::Tests
