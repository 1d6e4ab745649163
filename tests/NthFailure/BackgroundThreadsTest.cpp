// The background threads of a client that runs for long, with each allocation and each call of the platform
// of one of them failing: it goes on with its work, and so does the client.

#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/IServiceResponse.h"
#include "tests/Fakes/Linux/MemorySecurityFramework.h"
#include "tests/NthFailure/FailingPlatform.h"
#include "tests/NthFailure/StarvedRun.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace std::chrono_literals;

/// Knows which of the watched threads are at rest: in a wait of a minute or longer.
class RestingClock : public JumpingClock {
public:
    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        if (atMost >= 1min && NthFailure::ThisThread() != NthFailure::Foreign) {
            const NthFailure::Pause pause;
            std::lock_guard guard(mutex);
            ++rests[NthFailure::ThisThread()];
            changed.notify_all();
        }
        JumpingClock::Wait(condition, lock, atMost);
    }

    /// Returns when each of so many threads has come to rest so often; false if one has not after a while.
    bool AwaitRests(std::size_t threads, int times) {
        std::unique_lock guard(mutex);
        return changed.wait_for(guard, 20s, [&] {
            return rests.size() >= threads && std::all_of(rests.begin(), rests.end(), [&](const auto& one) {
                       return one.second >= times;
                   });
        });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex:
    std::map<std::size_t, int> rests;
};

// Idle connections, failure records, tokens, the list of the discovery.
constexpr std::size_t Threads = 4;

const std::string DiscoveryList = Security + "/CS-cpp/cache/c1/v1-service.cache-p";

/// A client that has made a call, and so has a token that is to be refreshed; and a list of the discovery
/// that will be.
class CallingWorld {
public:
    CallingWorld() {
        machine.TieTo(machine.web.url, "1600100000");
        machine.files.Put(Security + "/CS-cpp/cache/c1/aa_token/expired-p",
                          R"({"lastRefreshed":"2020-01-01T00:00:00.0000000Z","token":{"token_type":"Bearer",)"
                          R"("access_token":"x","expires_in":1,"scope":"x"},"servicename":"x"})");
        // The removal of expired tokens has no handler of exceptions, on purpose.
        machine.files.Decide([](const FileOperation& operation) -> std::optional<int> {
            if (operation.name == "List") NthFailure::SpareThisThread();
            return std::nullopt;
        });
    }

    /// The status of an answer. A call under which the clock jumps can have no time left; the next one has.
    int Call(ClientCommunications::IClientCommunications& client, const NthFailure::Plan& plan) {
        try {
            return Call(client);
        } catch (const std::runtime_error&) {
            // So has one on a connection that has fallen silent behind a whole answer.
            if (plan.what != NthFailure::Of::ClockAhead && plan.what != NthFailure::Of::SilentByte) throw;
            return Call(client);
        }
    }

    ConfiguredMachineOn<MemorySecurityFramework> machine;
    RestingClock clock;
    FailingPlatform platform{{.files = true, .sockets = true}};

private:
    static int Call(ClientCommunications::IClientCommunications& client) {
        const auto gateway =
            client.GetServiceGatewayFactory()->Create(client.GetServiceFinderFactory()->CreateByName("s"));
        const auto request = client.GetServiceRequestFactory()->Create("GET", "/x", "1");
        return gateway->CallForString(request, Cancellation::Token())->GetStatusCode();
    }
};

class NthFailureOfBackgroundThreadsTest : public testing::TestWithParam<std::size_t> {};

TEST_P(NthFailureOfBackgroundThreadsTest, ThreadGoesOnAndCallsAreAnswered) {
    FailEverywhere(GetParam(), [](const NthFailure::Plan& plan) {
        CallingWorld world;
        const auto list = world.machine.files.Content(DiscoveryList);
        const NthFailure failure(plan);
        const auto client = ClientCommunications::MakeClientCommunications(
            ClientCommunications::CommunicationsParameters("c1"));
        EXPECT_EQ(world.Call(*client, plan), 200);
        EXPECT_TRUE(world.clock.AwaitRests(Threads, 1)) << "a thread has ended or hangs";
        if (testing::Test::HasFailure()) return false;
        world.machine.clock.AwaitWaiters(Threads);

        world.machine.clock.Advance(11 * 24h);

        EXPECT_TRUE(world.clock.AwaitRests(Threads, 2)) << "a thread has ended or hangs";
        EXPECT_EQ(world.Call(*client, plan), 200);
        if (plan.n == 0) {
            EXPECT_NE(world.machine.files.Content(DiscoveryList), list) << "nothing was refreshed";
        }
        return failure.HasHappened();
    });
}

INSTANTIATE_TEST_SUITE_P(, NthFailureOfBackgroundThreadsTest, testing::Range<std::size_t>(1, Threads + 1));

}  // namespace
}  // namespace Ombry::Tests
