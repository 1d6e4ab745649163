#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/LockFree.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <optional>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;

constexpr Duration Tick(1);
constexpr Duration Retention = 30min;

/// A row of one-second delays that says when it goes: with the record that owns it.
class CountedDelays : public IRetryDelayIterator {
public:
    explicit CountedDelays(std::atomic<int>& alive) : alive(alive) { ++alive; }
    ~CountedDelays() override { --alive; }
    Duration Next() override { return 1s; }
    void Reset() override {}

private:
    std::atomic<int>& alive;
};

class CountedDelaysFactory : public IRetryDelayIteratorFactory {
public:
    std::unique_ptr<IRetryDelayIterator> Create() override {
        if (fail) throw std::runtime_error("no delays");
        return std::make_unique<CountedDelays>(alive);
    }

    std::atomic<int> alive{0};
    bool fail = false;
};

class FailedServicesTest : public testing::Test {
protected:
    std::shared_ptr<FailedServices> Make(std::shared_ptr<IRetryDelayIteratorFactory> factory) {
        auto services = std::make_shared<FailedServices>(std::move(factory), Retention);
        clock.AwaitWaiters(1);
        return services;
    }

    std::shared_ptr<FailedServices> Make() {
        return Make(std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s));
    }

    /// Until the cleaner has gone to sleep for the n-th time.
    void AwaitWait(std::size_t n) {
        while (clock.Waits().size() < n)
            std::this_thread::yield();
    }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
};

void ExpectHealthy(const FailureInfo& info) {
    EXPECT_FALSE(info.failed);
    EXPECT_TRUE(info.isLocal);
    EXPECT_EQ(info.nextRetryTime, TimePoint{});
    EXPECT_EQ(info.failureCount, 0);
}

TEST_F(FailedServicesTest, AnUnknownServerIsInGoodHealth) {
    ExpectHealthy(Make()->Get("unknown"));
}

TEST_F(FailedServicesTest, FailuresOfOneServerDoubleItsDelayFromTheClockOfEach) {
    const auto services = Make();
    const std::vector<Duration> delays{1s, 2s, 4s, 8s, 16s, 30s, 30s};
    int count = 0;
    for (const Duration delay : delays) {
        services->RecordFailure("a", false);
        const FailureInfo info = services->Get("a");
        EXPECT_TRUE(info.failed);
        EXPECT_EQ(info.nextRetryTime, clock.Now() + delay);
        EXPECT_EQ(info.failureCount, ++count);
        clock.Advance(5s);
    }
}

TEST_F(FailedServicesTest, ServersFailIndependently) {
    const auto services = Make();
    services->RecordFailure("a", true);
    services->RecordFailure("a", true);
    services->RecordFailure("", true);
    EXPECT_EQ(services->Get("a").failureCount, 2);
    EXPECT_EQ(services->Get("").failureCount, 1);
    EXPECT_EQ(services->Get("").nextRetryTime, clock.Now() + Duration(1s));
    ExpectHealthy(services->Get("A"));
}

TEST_F(FailedServicesTest, WhereAServerStandsKeepsItsFirstValue) {
    const auto services = Make();
    services->RecordFailure("a", false);
    services->RecordFailure("a", true);
    EXPECT_FALSE(services->Get("a").isLocal);
    services->RecordFailure("b", true);
    services->RecordFailure("b", false);
    EXPECT_TRUE(services->Get("b").isLocal);
}

TEST_F(FailedServicesTest, ASuccessForgetsAllBackOff) {
    const auto services = Make();
    for (int i = 0; i < 4; ++i)
        services->RecordFailure("a", false);
    services->Remove("a");
    ExpectHealthy(services->Get("a"));
    services->RecordFailure("a", true);
    EXPECT_EQ(services->Get("a").nextRetryTime, clock.Now() + Duration(1s));
    EXPECT_EQ(services->Get("a").failureCount, 1);
    EXPECT_TRUE(services->Get("a").isLocal);
}

TEST_F(FailedServicesTest, RemovingAnUnknownServerDoesNothing) {
    const auto services = Make();
    services->RecordFailure("a", true);
    services->Remove("b");
    EXPECT_TRUE(services->Get("a").failed);
}

TEST_F(FailedServicesTest, ARecordCountsUntilItsRetentionHasPassedAndNotATickLonger) {
    const auto services = Make();
    services->RecordFailure("a", true);
    const TimePoint end = clock.Now() + Duration(1s) + Retention;
    clock.SetNow(end);
    EXPECT_TRUE(services->Get("a").failed);
    clock.SetNow(end + Tick);
    ExpectHealthy(services->Get("a"));
}

TEST_F(FailedServicesTest, ARecordPastItsRetentionGoesOnCountingUntilItIsSwept) {
    const auto services = Make();
    services->RecordFailure("a", false);
    clock.SetNow(clock.Now() + Duration(31min));
    ExpectHealthy(services->Get("a"));
    services->RecordFailure("a", true);
    const FailureInfo info = services->Get("a");
    EXPECT_EQ(info.failureCount, 2);
    EXPECT_EQ(info.nextRetryTime, clock.Now() + Duration(2s));
    EXPECT_FALSE(info.isLocal);
}

TEST_F(FailedServicesTest, TimesAtTheEndOfTheRangeSaturate) {
    constexpr Duration most(std::numeric_limits<std::int64_t>::max());
    const auto services = Make(std::make_shared<ExponentialDelayRetryIteratorFactory>(most, most));
    services->RecordFailure("a", true);
    EXPECT_EQ(services->Get("a").nextRetryTime, TimePoint(most));
    EXPECT_TRUE(services->Get("a").failed);
}

TEST_F(FailedServicesTest, ADelayThatCannotBeMadeLeavesNoRecord) {
    const auto factory = std::make_shared<CountedDelaysFactory>();
    const auto services = Make(factory);
    factory->fail = true;
    EXPECT_THROW(services->RecordFailure("a", true), std::runtime_error);
    ExpectHealthy(services->Get("a"));
    factory->fail = false;
    services->RecordFailure("a", true);
    EXPECT_EQ(services->Get("a").failureCount, 1);
}

TEST_F(FailedServicesTest, TheCleanerLooksAtTheClockEveryFewMinutesAndSweepsOnceARetention) {
    const auto factory = std::make_shared<CountedDelaysFactory>();
    const auto services = Make(factory);
    services->RecordFailure("a", true);
    clock.Advance(Retention);  // the first sweep: its retention ends a second later
    AwaitWait(2);
    for (std::size_t look = 2; look <= 6; ++look) {
        clock.Advance(5min);
        AwaitWait(look + 1);
        EXPECT_EQ(factory->alive, 1) << look;
    }
    EXPECT_EQ(clock.Waits(), std::vector<Duration>(7, 5min));
    clock.Advance(5min);
    AwaitWait(8);
    EXPECT_EQ(factory->alive, 0);
}

TEST_F(FailedServicesTest, TheCleanerErasesOnlyRecordsPastTheirRetention) {
    const auto factory = std::make_shared<CountedDelaysFactory>();
    const auto services = Make(factory);
    clock.Advance(Retention - Duration(2s));
    AwaitWait(2);
    services->RecordFailure("young", true);
    EXPECT_EQ(factory->alive, 1);
    clock.Advance(2s);  // the first sweep: the record is young
    AwaitWait(3);
    EXPECT_EQ(factory->alive, 1);
    clock.Advance(Retention);  // the second: a second past its retention
    AwaitWait(4);
    EXPECT_EQ(factory->alive, 0);
}

TEST_F(FailedServicesTest, ARecordWhoseRetentionEndsAtTheSweepStaysForTheNext) {
    const auto factory = std::make_shared<CountedDelaysFactory>();
    const auto services = Make(factory);
    clock.Advance(Retention - Duration(1s));
    AwaitWait(2);
    services->RecordFailure("a", true);
    clock.Advance(1s);
    AwaitWait(3);
    clock.Advance(Retention);  // exactly at the end: not later than it
    AwaitWait(4);
    EXPECT_EQ(factory->alive, 1);
    clock.Advance(Retention);
    AwaitWait(5);
    EXPECT_EQ(factory->alive, 0);
}

TEST_F(FailedServicesTest, ASweepThatCameLateIsWhatTheNextIsCountedFrom) {
    const auto factory = std::make_shared<CountedDelaysFactory>();
    const auto services = Make(factory);
    clock.SetNow(clock.Now() + Retention + Duration(5min));  // which the wait does not notice
    services->RecordFailure("a", true);
    clock.Advance(5min);  // the sweep, ten minutes late
    AwaitWait(2);
    clock.Advance(26min);  // the record is past its retention for a minute
    AwaitWait(3);
    ASSERT_EQ(clock.Waits().back(), Duration(4min));
    EXPECT_EQ(factory->alive, 1);
    clock.Advance(4min);
    AwaitWait(4);
    EXPECT_EQ(factory->alive, 0);
}

TEST_F(FailedServicesTest, AClockThatJumpsIsNoticedWhenTheWaitEnds) {
    const auto factory = std::make_shared<CountedDelaysFactory>();
    const auto services = Make(factory);
    const TimePoint start = clock.Now();
    services->RecordFailure("a", true);
    clock.Advance(Retention - Duration(1s));
    AwaitWait(2);
    EXPECT_EQ(clock.Waits().back(), Duration(1s));
    clock.SetNow(start);  // set back by nearly a retention
    clock.Advance(1s);
    AwaitWait(3);
    EXPECT_EQ(clock.Waits().back(), Duration(5min));
    EXPECT_EQ(factory->alive, 1);
}

TEST_F(FailedServicesTest, DestructionEndsTheWaitAtOnce) {
    auto services = Make();
    services.reset();
    EXPECT_EQ(clock.Waits().size(), 1u);
}

TEST_F(FailedServicesTest, ThreadsShareOneMemory) {
    const auto services = Make();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&services, i] {
            const std::string own = std::to_string(i);
            for (int n = 0; n < 100; ++n) {
                services->RecordFailure("shared", true);
                services->RecordFailure(own, false);
                services->Get("shared");
                services->Remove(own);
            }
        });
    }
    clock.Advance(Retention);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(services->Get("shared").failureCount, 400);
    ExpectHealthy(services->Get("0"));
}

// With the clock of the system, which has no lock that would order what the memory leaves unordered.
TEST(FailedServicesThreadsTest, WhoReadsOrForgetsWaitsForWhoRecords) {
    FailedServices services(std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), Retention);
    services.RecordFailure("a", true);
    RunInStep({
        [&](int thread) { thread == 0 ? void(services.Get("a")) : services.RecordFailure("a", true); },
        [&](int thread) { thread == 0 ? services.Remove("a") : services.RecordFailure("b", true); },
    });
    ExpectHealthy(services.Get("a"));
    EXPECT_EQ(services.Get("b").failureCount, 1);
}

}  // namespace
}  // namespace Ombry::Tests
