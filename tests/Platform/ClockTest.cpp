#include "Platform/IClock.h"
#include "tests/Fakes/ObservedThread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <deque>
#include <limits>

namespace Ombry::Tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Duration Tick(1);

// The clocks of the system.

class ClockTest : public testing::Test {
protected:
    Platform::IClock& clock = Platform::Production<Platform::IClock>();
};

TEST_F(ClockTest, NowIsTheSystemClockCutToTicks) {
    const auto before = std::chrono::floor<Duration>(std::chrono::system_clock::now());
    const TimePoint now = clock.Now();
    EXPECT_GE(now, before);
    EXPECT_LE(now, std::chrono::system_clock::now());
}

TEST_F(ClockTest, NowSecondsAreThoseOfNowAndLagBehindByATickAtMost) {
    constexpr Duration longestTick = std::chrono::milliseconds(20);
    const auto seconds = [](TimePoint time) { return std::chrono::floor<std::chrono::seconds>(time); };
    const TimePoint before = clock.Now() - longestTick;
    const TimePoint now{std::chrono::seconds(clock.NowSeconds())};
    EXPECT_GE(now, seconds(before));
    EXPECT_LE(now, clock.Now());
}

TEST_F(ClockTest, SteadyNowIsTheMonotonicClockCutToTicks) {
    const auto steady = [] { return std::chrono::steady_clock::now().time_since_epoch(); };
    const auto before = std::chrono::floor<Duration>(steady());
    const Duration now = clock.SteadyNow();
    EXPECT_GE(now, before);
    EXPECT_LE(now, steady());
}

TEST_F(ClockTest, WaitOfNoTimeKeepsTheLock) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    clock.Wait(condition, lock, Duration(0));
    clock.Wait(condition, lock, -Tick);
    EXPECT_TRUE(lock.owns_lock());
}

TEST_F(ClockTest, WaitEndsWhenItIsNotifiedHoweverLongItMayLast) {
    for (const Duration atMost : {Duration(std::chrono::hours(1)), Duration::max()}) {
        std::mutex mutex;
        std::condition_variable condition;
        bool ended = false;
        ObservedThread waiter([&] {
            std::unique_lock lock(mutex);
            clock.Wait(condition, lock, atMost);
            ended = lock.owns_lock();
        });
        EXPECT_TRUE(waiter.IsBlocked());
        {
            std::lock_guard guard(mutex);  // free while the other waits
            condition.notify_all();
        }
        waiter.Join();
        EXPECT_TRUE(ended);
    }
}

TEST_F(ClockTest, WaitEndsByItselfWhenItsTimeIsOver) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    clock.Wait(condition, lock, Tick);
    EXPECT_TRUE(lock.owns_lock());
}

// What is built on them.

/// A clock whose waits last as long as a test wrote down. Both clocks move with them.
class WrittenClock : public Platform::IClock {
public:
    TimePoint Now() override { return now; }
    Duration SteadyNow() override { return steady; }
    void Sleep(Duration) override { throw std::logic_error("Sleep"); }
    void Wait(std::condition_variable&, std::unique_lock<std::mutex>& lock, Duration atMost) override {
        if (!lock.owns_lock() || lengths.empty()) throw std::logic_error("Wait");
        waits.push_back(atMost);
        now += lengths.front();
        steady += lengths.front();
        lengths.pop_front();
        if (onWait) onWait();
    }

    TimePoint now{Duration(1'000'000)};
    Duration steady{500};
    std::deque<Duration> lengths;
    std::vector<Duration> waits;
    std::function<void()> onWait;
};

class WaitingTest : public testing::Test {
protected:
    bool For(Duration length) {
        return Platform::WaitFor(condition, lock, length, [this] { return ++looks, done; });
    }
    bool Until(TimePoint deadline) {
        return Platform::WaitUntil(condition, lock, deadline, [this] { return ++looks, done; });
    }

    WrittenClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock<std::mutex> lock{mutex};
    bool done = false;
    int looks = 0;
};

TEST_F(WaitingTest, WallSecondsAreThoseOfTheClockInForceRoundedDown) {
    clock.now = TimePoint(Duration(3 * TicksPerSecond - 1));
    EXPECT_EQ(Platform::WallSeconds(), 2);
    clock.now += Tick;
    EXPECT_EQ(Platform::WallSeconds(), 3);
    clock.now = TimePoint(-Tick);
    EXPECT_EQ(Platform::WallSeconds(), -1);
}

TEST_F(WaitingTest, WhatHoldsAlreadyIsNotWaitedFor) {
    done = true;
    EXPECT_TRUE(For(std::chrono::hours(1)));
    EXPECT_TRUE(For(Duration(0)));
    EXPECT_TRUE(Until(clock.now + Tick));
    EXPECT_TRUE(Until(clock.now - Tick));
    EXPECT_THAT(clock.waits, IsEmpty());
}

TEST_F(WaitingTest, NoTimeIsNoWait) {
    EXPECT_FALSE(For(Duration(0)));
    EXPECT_FALSE(For(-Tick));
    EXPECT_FALSE(Until(clock.now));
    EXPECT_FALSE(Until(clock.now - Tick));
    EXPECT_EQ(looks, 4);
    EXPECT_THAT(clock.waits, IsEmpty());
}

TEST_F(WaitingTest, WaitThatEndsEarlyGoesOnWithWhatIsLeftToTheTick) {
    clock.lengths = {Duration(40), Duration(0), Duration(59), Tick};
    EXPECT_FALSE(For(Duration(100)));
    EXPECT_THAT(clock.waits, ElementsAre(Duration(100), Duration(60), Duration(60), Tick));
    clock.waits.clear();
    clock.lengths = {Duration(40), Duration(0), Duration(59), Tick};
    EXPECT_FALSE(Until(clock.now + Duration(100)));
    EXPECT_THAT(clock.waits, ElementsAre(Duration(100), Duration(60), Duration(60), Tick));
}

TEST_F(WaitingTest, WhatHoldsAtTheEndOfTheLastWaitCounts) {
    clock.onWait = [this] { done = true; };
    clock.lengths = {Duration(100)};
    EXPECT_TRUE(For(Duration(100)));
    done = false;
    clock.lengths = {Duration(500)};
    EXPECT_TRUE(Until(clock.now + Duration(100)));
}

TEST_F(WaitingTest, LengthIsSteadyTimeAndDeadlineIsWallTime) {
    clock.onWait = [this] { clock.now += std::chrono::hours(1); };
    clock.lengths = {Duration(40), Duration(60)};
    EXPECT_FALSE(For(Duration(100)));
    EXPECT_EQ(clock.waits.size(), 2u);
    clock.waits.clear();
    clock.lengths = {Duration(40)};
    EXPECT_FALSE(Until(clock.now + Duration(100)));
    EXPECT_THAT(clock.waits, ElementsAre(Duration(100)));
    clock.waits.clear();
    clock.onWait = [this] { clock.now -= clock.waits.size() == 1 ? Duration(1000) : Duration(0); };
    clock.lengths = {Duration(100), Duration(1000)};
    EXPECT_FALSE(Until(clock.now + Duration(100)));
    EXPECT_THAT(clock.waits, ElementsAre(Duration(100), Duration(1000)));
}

TEST_F(WaitingTest, SingleWaitForALengthNeverExceedsTenDays) {
    const Duration tenDays = std::chrono::hours(240);
    EXPECT_EQ(Platform::LongestWait, tenDays);
    clock.lengths = {tenDays, Duration(5)};
    EXPECT_FALSE(For(tenDays + Duration(5)));
    EXPECT_THAT(clock.waits, ElementsAre(tenDays, Duration(5)));
    clock.waits.clear();
    clock.onWait = [this] { done = clock.waits.size() == 2; };
    clock.lengths = {tenDays, tenDays};
    EXPECT_TRUE(For(Duration::max()));
    EXPECT_THAT(clock.waits, ElementsAre(tenDays, tenDays));
}

TEST_F(WaitingTest, SingleWaitForATimeNeverExceedsFiveMinutes) {
    const Duration bound = std::chrono::minutes(5);
    EXPECT_EQ(Platform::LongestBlindWait, bound);
    clock.lengths = {bound, Duration(5)};
    EXPECT_FALSE(Until(clock.now + bound + Duration(5)));
    EXPECT_THAT(clock.waits, ElementsAre(bound, Duration(5)));
    clock.onWait = [this] { done = clock.waits.size() == 2; };
    for (const TimePoint start : {TimePoint(), TimePoint(Duration(-5)), TimePoint::min()}) {
        clock.waits.clear();
        done = false;
        clock.now = start;
        clock.lengths = {bound, bound};
        EXPECT_TRUE(Until(TimePoint::max()));
        EXPECT_THAT(clock.waits, ElementsAre(bound, bound));
    }
}

TEST_F(WaitingTest, TimeThatPassesWhileTheMachineSleepsBringsADeadlineNearerAndNoLength) {
    const Duration night = std::chrono::hours(8);
    const Duration bound = Platform::LongestBlindWait;
    clock.onWait = [&, this] {
        if (clock.waits.size() == 1) clock.now += night;
    };
    clock.lengths = {bound, Tick};
    EXPECT_FALSE(Until(clock.now + night + bound + Tick));
    EXPECT_THAT(clock.waits, ElementsAre(bound, Tick));
    clock.waits.clear();
    clock.lengths = {Duration(99), Tick};
    EXPECT_FALSE(For(Duration(100)));
    EXPECT_THAT(clock.waits, ElementsAre(Duration(100), Tick));
}

TEST_F(WaitingTest, DeadlineBefore1970IsWaitedForToTheTick) {
    clock.now = TimePoint(Duration(-100));
    clock.lengths = {Duration(60)};
    EXPECT_FALSE(Until(TimePoint(Duration(-40))));
    EXPECT_THAT(clock.waits, ElementsAre(Duration(60)));
}

TEST_F(WaitingTest, WallSecondsAreRoundedDown) {
    for (const auto& [ticks, seconds] : std::vector<std::pair<std::int64_t, std::int64_t>>{
             {0, 0}, {9'999'999, 0}, {10'000'000, 1}, {-1, -1}, {-10'000'000, -1}, {-10'000'001, -2}}) {
        clock.now = TimePoint(Duration(ticks));
        EXPECT_EQ(Platform::WallSeconds(), seconds) << ticks;
    }
}

// The group in force.

TEST(CurrentTest, ReplacementsNestAndTheProductionGroupComesBack) {
    Platform::IClock& production = Platform::Production<Platform::IClock>();
    EXPECT_EQ(&Platform::Clock(), &production);
    WrittenClock outer;
    {
        const Platform::Testing::Replace<Platform::IClock> first(outer);
        EXPECT_EQ(&Platform::Clock(), &outer);
        {
            WrittenClock inner;
            const Platform::Testing::Replace<Platform::IClock> second(inner);
            EXPECT_EQ(&Platform::Clock(), &inner);
        }
        EXPECT_EQ(&Platform::Clock(), &outer);
    }
    EXPECT_EQ(&Platform::Clock(), &production);
}

}  // namespace
}  // namespace Ombry::Tests
