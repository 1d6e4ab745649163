#include "Platform/IClock.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

TEST(SleepTest, SleepIsNeverShorterThanItsSlice) {
    Platform::IClock& clock = Platform::Production<Platform::IClock>();
    for (const std::int64_t ticks : {1, 123, 10'000, 12'345}) {
        const Duration before = clock.SteadyNow();
        clock.Sleep(Duration(ticks));
        EXPECT_GE(clock.SteadyNow() - before, Duration(ticks));
    }
}

TEST(SleepTest, SleepOfNoTimeReturnsAtOnce) {
    Platform::IClock& clock = Platform::Production<Platform::IClock>();
    clock.Sleep(Duration(0));
    clock.Sleep(Duration(-1));
    clock.Sleep(Duration::min());
}

}  // namespace
}  // namespace Ombry::Tests
