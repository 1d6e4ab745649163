// How the sleep of the clock asks the system.

#include "Platform/IClock.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <limits>

namespace Ombry::Tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Duration OneTick(1);

class SleepTest : public testing::Test {
protected:
    Platform::IClock& clock = Platform::Production<Platform::IClock>();
};

TEST_F(SleepTest, SleepEndsBehindTheLastTickOfItsSliceAndGoesOnAfterSignals) {
    const Duration slice(123);
    SystemCalls calls;
    calls.Fail("clock_nanosleep", EINTR, 2);
    const Duration before = clock.SteadyNow();
    clock.Sleep(slice);
    const Duration after = clock.SteadyNow();

    EXPECT_GE(after - before, slice);
    ASSERT_THAT(calls.Names(), ElementsAre("clock_nanosleep", "clock_nanosleep", "clock_nanosleep"));
    for (const SystemCalls::Call& call : calls.Calls()) {
        // The clock is cut down to ticks, so that the whole of the last one has to pass.
        EXPECT_EQ(call.argument % 100, 99);
        const Duration end(std::stoll(call.text) * TicksPerSecond + call.argument / 100);
        EXPECT_GE(end, before + slice);
        EXPECT_LE(end, after);
        EXPECT_EQ(call.argument, calls.Calls()[0].argument);  // the same end, however often it is woken
    }
}

TEST_F(SleepTest, SleepOfNoTimeReturnsAtOnce) {
    SystemCalls calls;
    clock.Sleep(Duration(0));
    clock.Sleep(-OneTick);
    clock.Sleep(Duration::min());
    EXPECT_THAT(calls.Names(), IsEmpty());
}

TEST_F(SleepTest, SleepBeyondTheEndOfTimeEndsThere) {
    SystemCalls calls;
    calls.Fail("clock_nanosleep", EINVAL);  // so that nobody sleeps
    clock.Sleep(Duration::max());
    ASSERT_EQ(calls.Calls().size(), 1u);
    EXPECT_EQ(calls.Calls()[0].text,
              std::to_string(std::numeric_limits<std::int64_t>::max() / TicksPerSecond));
}

}  // namespace
}  // namespace Ombry::Tests
