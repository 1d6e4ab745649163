#include "ClientCommunications/Impl/SSDCacheMaintainer.h"
#include "ObjectMapping/DateTime.h"
#include "tests/Fakes/DrawnSeeds.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <map>
#include <set>

namespace Ombry::Tests {
namespace {

using ClientCommunications::IFoundServices;
using ClientCommunications::IFoundServicesCache;
using ClientCommunications::IRootRequestMetaData;
using ClientCommunications::IServiceFinder;
using ClientCommunications::SSDCacheMaintainer;
using Texts = std::vector<std::string>;
using Pairs = std::map<std::string, std::string>;

class NoServices : public IFoundServices {
public:
    using Services = std::list<std::shared_ptr<ClientCommunications::IService>>;
    Services GetAll() const override { return {}; }
    Services GetLocal() const override { return {}; }
    void AddLocal(std::shared_ptr<ClientCommunications::IService>) override {}
    void AddLocal(Services) override {}
    Services GetRemote() const override { return {}; }
    void AddRemote(std::shared_ptr<ClientCommunications::IService>) override {}
    void AddRemote(Services) override {}
    void CopyFrom(std::shared_ptr<IFoundServices>) override {}
};

/// Finds the same services each time, or does what a test says.
class ScriptedFinder : public IServiceFinder {
public:
    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData> callMetaData,
                                         Cancellation::Token token) override {
        std::function<void(Cancellation::Token)> chosen;
        {
            std::lock_guard guard(mutex);
            ++calls;
            metaData.clear();
            callMetaData->ForEachValue(
                [&](const std::string& key, const std::string& value) { metaData[key] = value; });
            chosen = script;
        }
        if (chosen) chosen(token);
        return services;
    }
    std::shared_ptr<IFoundServices> Find(Cancellation::Token) override {
        ADD_FAILURE() << "the root of the call is missing";
        return services;
    }

    const std::shared_ptr<IFoundServices> services = std::make_shared<NoServices>();
    std::function<void(Cancellation::Token)> script;  // set before the thread starts

    int Calls() const {
        std::lock_guard guard(mutex);
        return calls;
    }
    Pairs MetaData() const {
        std::lock_guard guard(mutex);
        return metaData;
    }

private:
    mutable std::mutex mutex;
    // Guarded by mutex:
    int calls = 0;
    Pairs metaData;
};

/// Remembers what is saved.
class RecordingCache : public IFoundServicesCache {
public:
    struct Saved {
        std::shared_ptr<IFoundServices> services;
        TimePoint nextRefreshTime;
    };

    TimePoint GetNextRefreshTime() override { return next; }
    std::shared_ptr<IFoundServices> GetFoundServices() override { return nullptr; }
    void Save(std::shared_ptr<IFoundServices> services, TimePoint nextRefreshTime) override {
        if (failure) throw std::runtime_error("disk is full");
        if (onSave) onSave(nextRefreshTime);
        std::lock_guard guard(mutex);
        saved.push_back({std::move(services), nextRefreshTime});
    }

    TimePoint next;
    bool failure = false;
    std::function<void(TimePoint nextRefreshTime)> onSave;  // set before the thread starts

    std::vector<Saved> AllSaved() const {
        std::lock_guard guard(mutex);
        return saved;
    }

private:
    mutable std::mutex mutex;
    std::vector<Saved> saved;  // guarded by mutex
};

class SSDCacheMaintainerTest : public testing::Test {
protected:
    static constexpr Duration Tick = Duration(1);

    std::unique_ptr<SSDCacheMaintainer> Make() {
        return std::make_unique<SSDCacheMaintainer>(finder, cache, logger);
    }
    std::unique_ptr<SSDCacheMaintainer> Started() {
        auto maintainer = Make();
        maintainer->Start();
        return maintainer;
    }

    /// How far ahead of the clock the first refresh of a thread with this seed puts the next one.
    Duration Rhythm(std::uint32_t seed) {
        FakeClock ownClock;
        FakeRandom ownRandom(seed);
        const Platform::Testing::Replace<Platform::IClock> useClock(ownClock);
        const Platform::Testing::Replace<Platform::IRandom> useRandom(ownRandom);
        const auto maintainer = Started();
        ownClock.AwaitWaits(1);
        return NextTold() - ownClock.Now();
    }

    /// The time of the next refresh or attempt that was told last.
    TimePoint NextTold() const {
        TimePoint next;
        const std::string last = logger->Messages().back();
        EXPECT_TRUE(ObjectMapping::ParseDateTime(last.substr(last.find(" time: ") + 7), next)) << last;
        return next;
    }

    /// Moves the clock to the time told last, at which the thread refreshes, and blocks until it waits again.
    void ReachNext() {
        const std::size_t waits = clock.Waits().size();
        clock.Advance(NextTold() - clock.Now());
        clock.AwaitWaits(waits + 1);
    }

    void FailFinds() {
        finder->script = [](auto) { throw std::runtime_error("no answer"); };
    }

    FakeClock clock;
    FakeRandom random;
    std::shared_ptr<ScriptedFinder> finder = std::make_shared<ScriptedFinder>();
    std::shared_ptr<RecordingCache> cache = std::make_shared<RecordingCache>();
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
};

TEST_F(SSDCacheMaintainerTest, DoesNothingUntilItIsStarted) {
    Make().reset();

    EXPECT_EQ(finder->Calls(), 0);
    EXPECT_EQ(logger->Messages(), Texts{});
}

TEST_F(SSDCacheMaintainerTest, RefreshesAtOnceWhatWasSeeded) {
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    EXPECT_EQ(finder->Calls(), 1);
    ASSERT_EQ(cache->AllSaved().size(), 1u);
    EXPECT_EQ(cache->AllSaved()[0].services, finder->services);
    EXPECT_EQ(cache->AllSaved()[0].nextRefreshTime, NextTold());
}

TEST_F(SSDCacheMaintainerTest, RefreshIsMarkedAsBackgroundWork) {
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    EXPECT_EQ(finder->MetaData(), (Pairs{{"SF-Root-Request-Is-Infrastructure", "true"},
                                         {"SF-Root-Request-Type", "UpdateSsdsSeedNodes"}}));
}

TEST_F(SSDCacheMaintainerTest, TellsEachStepOfASuccess) {
    auto maintainer = Started();
    clock.AwaitWaits(1);
    const std::string next = ObjectMapping::FormatDateTime(cache->AllSaved().at(0).nextRefreshTime);
    maintainer.reset();

    EXPECT_EQ(logger->Messages(),
              (Texts{"Thread started, next refresh time: 1970-01-01T00:00:00.0000000Z",
                     "Refreshing SSDS cache", "Next refresh time: " + next, "Thread exiting."}));
    EXPECT_EQ(logger->Messages(1).size(), 4u);
    std::set<int> lines;
    for (const auto& entry : logger->Entries()) {
        EXPECT_EQ(entry.function, "Ombry::ClientCommunications::SSDCacheMaintainer::MaintainCache");
        EXPECT_EQ(entry.file, SourcePath("ClientCommunications/Impl/SSDCacheMaintainer.cpp"));
        lines.insert(entry.line);
    }
    EXPECT_EQ(lines.size(), 4u) << "each call has a line of its own";
}

TEST_F(SSDCacheMaintainerTest, TellsEachStepOfAFailureAndLeavesTheCache) {
    FailFinds();
    auto maintainer = Started();
    clock.AwaitWaits(1);
    const std::string next = ObjectMapping::FormatDateTime(NextTold());
    maintainer.reset();

    EXPECT_EQ(logger->Messages(),
              (Texts{"Thread started, next refresh time: 1970-01-01T00:00:00.0000000Z",
                     "Refreshing SSDS cache", "Failed to get fresh SSDS list due to exception: no answer",
                     "Next attempt time: " + next, "Thread exiting."}));
    EXPECT_EQ(logger->Messages(4), Texts{"Failed to get fresh SSDS list due to exception: no answer"});
    EXPECT_EQ(logger->Messages(1).size(), 4u);
    EXPECT_EQ(cache->AllSaved().size(), 0u);
}

TEST_F(SSDCacheMaintainerTest, SuccessPutsTheNextRefreshEighteenToTwentyFourHoursAhead) {
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        const Duration ahead = Rhythm(seed);
        EXPECT_GE(ahead, std::chrono::minutes(1080));
        EXPECT_LE(ahead, std::chrono::minutes(1440));
        EXPECT_EQ(ahead % std::chrono::minutes(1), Duration(0));
    }
    for (const int end : {1080, 1440})
        EXPECT_EQ(Rhythm(SeedThatDraws(1080, 1440, end)), std::chrono::minutes(end));
}

TEST_F(SSDCacheMaintainerTest, FailurePutsTheNextAttemptFiveMinutesToFourHoursAhead) {
    FailFinds();
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        const Duration ahead = Rhythm(seed);
        EXPECT_GE(ahead, std::chrono::seconds(300));
        EXPECT_LE(ahead, std::chrono::seconds(14400));
        EXPECT_EQ(ahead % std::chrono::seconds(1), Duration(0));
    }
    for (const int end : {300, 14400})
        EXPECT_EQ(Rhythm(SeedThatDraws(300, 14400, end)), std::chrono::seconds(end));
}

TEST_F(SSDCacheMaintainerTest, CountsTheNextRefreshFromTheEndOfTheSearch) {
    finder->script = [this](auto) { clock.SetNow(TimePoint(std::chrono::hours(24 * 20000))); };
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    const Duration ahead =
        cache->AllSaved().at(0).nextRefreshTime - TimePoint(std::chrono::hours(24 * 20000));
    EXPECT_GE(ahead, std::chrono::minutes(1080));
    EXPECT_LE(ahead, std::chrono::minutes(1440));
}

TEST_F(SSDCacheMaintainerTest, SaveThatFailsIsAFailedRefresh) {
    cache->failure = true;
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    EXPECT_EQ(logger->Messages(4), Texts{"Failed to get fresh SSDS list due to exception: disk is full"});
    EXPECT_LE(NextTold() - clock.Now(), std::chrono::seconds(14400));
    // The time of the refresh that would have followed was told before the save.
    const Texts messages = logger->Messages();
    ASSERT_EQ(messages.size(), 5u);
    EXPECT_TRUE(messages[2].starts_with("Next refresh time: "));
    EXPECT_EQ(messages[3], "Failed to get fresh SSDS list due to exception: disk is full");
    EXPECT_TRUE(messages[4].starts_with("Next attempt time: "));
}

TEST_F(SSDCacheMaintainerTest, WaitsUntilTheListIsDueToTheTick) {
    cache->next = clock.Now() + std::chrono::hours(5);
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    clock.Advance(std::chrono::hours(5) - Tick);
    clock.AwaitWaits(2);
    EXPECT_EQ(clock.Waits()[1], Tick);
    EXPECT_EQ(finder->Calls(), 0);
    clock.Advance(Tick);
    clock.AwaitWaits(3);

    EXPECT_EQ(finder->Calls(), 1);
}

TEST_F(SSDCacheMaintainerTest, ListThatBecameDueWhileTheMachineSleptIsRefreshedMinutesAfterItWakes) {
    cache->next = clock.Now() + std::chrono::hours(5);
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    ASSERT_EQ(clock.Waits()[0], std::chrono::minutes(5));
    clock.SetNow(cache->next);  // the clock of the wait stood still
    clock.Advance(std::chrono::minutes(5));
    clock.AwaitWaits(2);

    EXPECT_EQ(finder->Calls(), 1);
}

TEST_F(SSDCacheMaintainerTest, TimeThatIsNeverReachedIsWaitedFor) {
    cache->next = TimePoint::max();
    const auto maintainer = Started();
    clock.AwaitWaits(1);
    clock.Advance(std::chrono::hours(24 * 365));
    clock.AwaitWaits(2);

    EXPECT_EQ(finder->Calls(), 0);
}

TEST_F(SSDCacheMaintainerTest, GoesOnAfterSuccessAndFailure) {
    std::atomic<int> calls{0};
    finder->script = [&](auto) {
        if (++calls == 2) throw std::runtime_error("no answer");
    };
    const auto maintainer = Started();
    clock.AwaitWaits(1);
    for (int refresh = 2; refresh <= 4; ++refresh)
        ReachNext();

    EXPECT_EQ(finder->Calls(), 4);
    EXPECT_EQ(cache->AllSaved().size(), 3u);
}

TEST_F(SSDCacheMaintainerTest, GoesOnAfterAnExceptionOfAnyStandardType) {
    class Unheard : public std::exception {
    public:
        const char* what() const noexcept override { return "unheard of"; }
    };
    std::atomic<int> calls{0};
    finder->script = [&](auto) {
        switch (++calls) {
            case 1:
                throw std::logic_error("broken");
            case 2:
                throw std::bad_alloc();
            case 3:
                throw Unheard();
        }
    };
    const auto maintainer = Started();
    clock.AwaitWaits(1);
    for (int refresh = 2; refresh <= 4; ++refresh)
        ReachNext();

    const std::string failed = "Failed to get fresh SSDS list due to exception: ";
    EXPECT_EQ(logger->Messages(4),
              (Texts{failed + "broken", failed + std::bad_alloc().what(), failed + "unheard of"}));
    EXPECT_EQ(cache->AllSaved().size(), 1u);
}

TEST_F(SSDCacheMaintainerTest, DrawsAllItsTimesFromOneRandomSource) {
    std::atomic<int> calls{0};
    finder->script = [&](auto) {
        if (++calls == 2) throw std::runtime_error("no answer");
    };
    std::vector<Duration> drawn;
    const auto maintainer = Started();
    clock.AwaitWaits(1);
    for (int refresh = 1; refresh <= 3; ++refresh) {
        if (refresh > 1) ReachNext();
        drawn.push_back(NextTold() - clock.Now());
    }

    std::mt19937 generator(random.SeedWord());
    const auto draw = [&](int least, int most) {
        return std::uniform_int_distribution(least, most)(generator);
    };
    const Duration first = std::chrono::minutes(draw(1080, 1440));
    const Duration second = std::chrono::seconds(draw(300, 14400));
    const Duration third = std::chrono::minutes(draw(1080, 1440));
    EXPECT_EQ(drawn, (std::vector<Duration>{first, second, third}));
    EXPECT_NE(first, third);
}

TEST_F(SSDCacheMaintainerTest, StopDuringTheWaitEndsTheThreadWithoutARequest) {
    cache->next = clock.Now() + std::chrono::hours(1);
    auto maintainer = Started();
    clock.AwaitWaits(1);

    maintainer.reset();  // returns although nobody moves the clock

    EXPECT_EQ(finder->Calls(), 0);
    EXPECT_EQ(logger->Messages().back(), "Thread exiting.");
    EXPECT_EQ(clock.Waits().size(), 1u);
}

TEST_F(SSDCacheMaintainerTest, StopThatComesBeforeTheFirstWaitIsSeen) {
    cache->next = TimePoint::max();
    for (int i = 0; i < 100; ++i)
        Started().reset();

    EXPECT_EQ(finder->Calls(), 0);
}

TEST_F(SSDCacheMaintainerTest, StopDuringASearchCancelsItAndNothingIsAskedAfterwards) {
    std::promise<void> asked;
    finder->script = [&](Cancellation::Token token) {
        EXPECT_FALSE(token.IsCancelled());
        asked.set_value();
        while (!token.IsCancelled())
            std::this_thread::yield();
        token.ThrowIfCancelled();
    };
    auto maintainer = Started();
    asked.get_future().wait();

    maintainer.reset();

    EXPECT_EQ(finder->Calls(), 1);
    EXPECT_EQ(cache->AllSaved().size(), 0u);
    EXPECT_EQ(logger->Messages(4),
              Texts{"Failed to get fresh SSDS list due to exception: Operation cancelled."});
    EXPECT_EQ(logger->Messages().back(), "Thread exiting.");
    EXPECT_EQ(clock.Waits().size(), 0u);
}

TEST_F(SSDCacheMaintainerTest, StopWhenTheNextRefreshIsDueAlreadyEndsTheThreadWithoutARequest) {
    std::promise<void> asked;
    finder->script = [&](Cancellation::Token token) {
        asked.set_value();
        while (!token.IsCancelled())
            std::this_thread::yield();
    };
    cache->onSave = [this](TimePoint next) { clock.SetNow(next); };
    auto maintainer = Started();
    asked.get_future().wait();

    maintainer.reset();

    EXPECT_EQ(finder->Calls(), 1);
    EXPECT_EQ(cache->AllSaved().size(), 1u);
    EXPECT_EQ(logger->Messages().back(), "Thread exiting.");
}

TEST_F(SSDCacheMaintainerTest, WorksWithoutALogger) {
    logger.reset();
    FailFinds();
    const auto maintainer = Started();
    clock.AwaitWaits(1);

    EXPECT_EQ(finder->Calls(), 1);
}

}  // namespace
}  // namespace Ombry::Tests
