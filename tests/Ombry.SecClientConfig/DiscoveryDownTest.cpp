// Whole commands while the discovery service refuses connections, by the age of the copy of its last answer.

#include "tests/Fakes/ForwardingSockets.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

const std::string CopyFolder = Security + "/CS-cpp/cache/finder_cache/";
// What the service says of its list, and how long a copy serves behind that.
constexpr std::int64_t Expiry = 1600000300;
constexpr std::int64_t StaleSeconds = 604500;

class DiscoveryDownTest : public testing::Test, protected ConfiguredMachine {
protected:
    DiscoveryDownTest() {
        EXPECT_EQ(Tool({"enroll-client", "-t", "t", "-nn", "Earlier"}).error, "");
        asked = web.Summaries().size();
        TieTo(RefusingUrl());
    }

    static TimePoint At(std::int64_t second) { return TimePoint(Duration(SecondsToTicks(second))); }

    /// The command must succeed by the copy, after this many connects to the service that is down.
    void ExpectServed(std::size_t connects) {
        ForwardingSockets sockets;
        const Platform::Testing::Replace<Platform::ISockets> replaced(sockets);
        const TimePoint start = clock.Now();

        EXPECT_EQ(Tool(EnrollNew).error, "");

        EXPECT_EQ(clock.Now(), start);
        EXPECT_EQ(sockets.CallsOf("Connect"), connects + 1);
        EXPECT_EQ(web.Summaries().size(), asked + 1);
        EXPECT_TRUE(web.Summaries().back().starts_with("POST /v1/auth/locationawareclients Bearer t "));
        EXPECT_TRUE(HasCopy());
    }

    bool HasCopy() const {
        for (const auto& [path, content] : files.Contents()) {
            if (path.starts_with(CopyFolder)) return true;
        }
        return false;
    }

    std::size_t asked = 0;
};

TEST_F(DiscoveryDownTest, FreshCopyServesWithoutACall) {
    clock.SetNow(At(Expiry - 1));
    ExpectServed(0);
}

TEST_F(DiscoveryDownTest, StaleCopyServesBehindOneCheapCall) {
    clock.SetNow(At(Expiry));
    ExpectServed(1);
}

TEST_F(DiscoveryDownTest, StaleCopyServesToItsLastSecond) {
    clock.SetNow(At(Expiry + StaleSeconds));
    ExpectServed(1);
}

TEST_F(DiscoveryDownTest, CopyThatIsTooOldIsDeletedAndTheCommandEndsAtItsLimit) {
    clock.SetNow(At(Expiry + StaleSeconds + 1));
    const TimePoint start = clock.Now();

    EXPECT_EQ(Tool(EnrollNew).error, "Caught exception: Operation timed out.\n");

    EXPECT_EQ(clock.Now() - start, Duration(300s));
    EXPECT_EQ(web.Summaries().size(), asked);
    EXPECT_FALSE(HasCopy());
    EXPECT_FALSE(files.Exists(Security + "/Components/New"));
}

}  // namespace
}  // namespace Ombry::Tests
