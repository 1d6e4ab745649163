#include "tests/ClientCommunications/JwtAuthenticatorFixture.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/ObservedThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace Ombry::Tests {
namespace {

using ClientCommunications::OAuth2Token;
using Texts = std::vector<std::string>;
using Pairs = std::map<std::string, std::string>;

class JwtAuthenticatorMaintenanceTest : public JwtAuthenticatorFixture {
protected:
    static constexpr unsigned long Long = 4294967295;

    JwtAuthenticatorMaintenanceTest() { client->SetExpiresIn(Long); }

    /// The first wait of a thread that got this seed.
    Duration FirstWait(std::uint32_t seed) {
        FakeClock ownClock;
        FakeRandom ownRandom(seed);
        const Platform::Testing::Replace<Platform::IClock> useClock(ownClock);
        const Platform::Testing::Replace<Platform::IRandom> useRandom(ownRandom);
        const auto authenticator = Make();
        ownClock.AwaitWaits(1);
        return ownClock.Waits()[0];
    }
};

TEST_F(JwtAuthenticatorMaintenanceTest, APassThatWaitsForTheDiskHoldsUpNoCall) {
    PutEntry("a", "token-a", clock.Now(), 1'000'000);
    PutEntry("b", "token-b", clock.Now(), 1'000'000);
    const auto authenticator = Make();

    EXPECT_TRUE(IsServedBeside(*authenticator, [&] { RunPass(1); }));
}

TEST_F(JwtAuthenticatorMaintenanceTest, ThreadTellsOfItsBeginAndItsEnd) {
    MakeWaiting().reset();

    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].message, "Thread starting");
    EXPECT_EQ(entries[1].message, "Thread exiting");
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.level, 0);
        EXPECT_EQ(entry.function, "Ombry::ClientCommunications::JwtAuthenticator::maintenanceThread");
        EXPECT_EQ(entry.file, SourcePath("ClientCommunications/Impl/JwtAuthenticator.cpp"));
    }
    EXPECT_LT(entries[0].line, entries[1].line);
}

TEST_F(JwtAuthenticatorMaintenanceTest, WaitsAreWholeMinutesUpToTwelveHours) {
    Duration sum{};
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        const Duration wait = FirstWait(seed);
        EXPECT_EQ(wait % std::chrono::minutes(1), Duration(0));
        EXPECT_GE(wait, std::chrono::minutes(1));  // no minute at all is no wait
        EXPECT_LE(wait, LongestWait);
        sum += wait;
    }
    // Even over the range: the mean of 300 is within 12 minutes of the middle, save once in a thousand.
    EXPECT_NEAR(static_cast<double>((sum / 300) / std::chrono::minutes(1)), 360.0, 40.0);
    EXPECT_EQ(FirstWait(SeedOfWait(720)), std::chrono::minutes(720));
    EXPECT_EQ(FirstWait(SeedOfWait(1)), std::chrono::minutes(1));
}

TEST_F(JwtAuthenticatorMaintenanceTest, NoMinuteDrawnIsAPassAtOnce) {
    FakeRandom none(SeedOfWait(0));
    const Platform::Testing::Replace<Platform::IRandom> replaced(none);
    PutEntry("a", "stored", clock.Now() - Tick, 0);

    const auto authenticator = Make();
    clock.AwaitWaits(1);

    EXPECT_EQ(files.Contents(), Pairs{});
    EXPECT_GT(clock.Waits()[0], Duration(0));
}

TEST_F(JwtAuthenticatorMaintenanceTest, NothingHappensBeforeTheWaitIsOver) {
    PutEntry("a", "stored", clock.Now() - Tick, 0);
    const auto authenticator = MakeWaiting();
    ASSERT_EQ(clock.Waits()[0], std::chrono::minutes(100));

    clock.Advance(std::chrono::minutes(100) - Tick);
    EXPECT_EQ(files.Texts(), Texts{});
    clock.Advance(Tick);
    clock.AwaitWaits(2);

    EXPECT_EQ(files.Contents(), Pairs{});
}

TEST_F(JwtAuthenticatorMaintenanceTest, ServiceUsedOnceIsRefreshedInTheNextPassOnly) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "a");

    RunPass(1);
    const TimePoint refreshed = clock.Now();
    EXPECT_EQ(client->ServiceNames(), (Texts{"a", "a"}));
    EXPECT_EQ(Stored("a"), Entry("a", "token-2", refreshed, Long));
    RunPass(2);
    RunPass(3);
    EXPECT_EQ(client->Calls().size(), 2u);
    EXPECT_EQ(Stored("a"), Entry("a", "token-2", refreshed, Long));

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer token-2");
    RunPass(4);
    EXPECT_EQ(client->Calls().size(), 3u);
}

TEST_F(JwtAuthenticatorMaintenanceTest, EveryWayOfUseKeepsATokenInRefresh) {
    const auto authenticator = MakeWaiting();
    PutEntry("cached", "t", clock.Now(), Long);
    PutEntry("recent", "t", clock.Now(), Long);
    PutEntry("unused", "t", clock.Now(), Long);
    Use(*authenticator, "cached");
    UseFresh(*authenticator, "recent");
    Use(*authenticator, "fresh");
    UseFresh(*authenticator, "refused");
    ASSERT_EQ(client->ServiceNames(), (Texts{"fresh", "refused"}));

    RunPass(1);

    EXPECT_EQ(client->ServiceNames(),
              (Texts{"fresh", "refused", "cached", "fresh", "recent", "refused"}));  // in the order of names
}

TEST_F(JwtAuthenticatorMaintenanceTest, UseThatFailedKeepsNoTokenInRefresh) {
    const auto authenticator = MakeWaiting();
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });
    EXPECT_THROW(Use(*authenticator, "unknown"), std::runtime_error);
    EXPECT_THROW(UseFresh(*authenticator, "refused"), std::runtime_error);
    client->AnswerWith({});
    files.FailEvery("BeginReplace", 28);
    EXPECT_THROW(Use(*authenticator, "unstored"), std::runtime_error);
    ASSERT_EQ(client->ServiceNames(), (Texts{"unknown", "refused", "unstored"}));

    RunPass(1);

    EXPECT_EQ(client->Calls().size(), 3u);
}

TEST_F(JwtAuthenticatorMaintenanceTest, RefreshIsMarkedAsBackgroundWork) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "a");
    logger->Clear();

    RunPass(1);

    const auto call = client->Calls().at(1);
    EXPECT_EQ(call.metaData, (Pairs{{"SF-Root-Request-Is-Infrastructure", "true"},
                                    {"SF-Root-Request-Type", "UpdateJwtToken"}}));
    EXPECT_FALSE(call.cancelled);
    ASSERT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].message, "Refreshing token for a");
    EXPECT_EQ(logger->Entries()[0].level, 0);
    EXPECT_EQ(logger->Entries()[0].function, "Ombry::ClientCommunications::JwtAuthenticator::updateTokens");
}

TEST_F(JwtAuthenticatorMaintenanceTest, FailedRefreshIsToldAndTheOthersGoOn) {
    const auto authenticator = MakeWaiting();
    for (const char* name : {"a", "b", "c"})
        Use(*authenticator, name);
    logger->Clear();
    const TimePoint used = clock.Now();
    client->AnswerWith([](const FakeOAuth2Client::Call& call, auto) {
        if (call.serviceName == "b") throw std::runtime_error("service is down");
        return FakeOAuth2Client::Token("new", Long);
    });

    RunPass(1);

    EXPECT_EQ(logger->Messages(),
              (Texts{"Refreshing token for a", "Refreshing token for b",
                     "Caught exception 'service is down' when trying to refresh token for b",
                     "Refreshing token for c"}));
    EXPECT_EQ(logger->Messages(3),
              Texts{"Caught exception 'service is down' when trying to refresh token for b"});
    EXPECT_EQ(logger->Entries()[2].function, "Ombry::ClientCommunications::JwtAuthenticator::updateTokens");
    EXPECT_EQ(Stored("a"), Entry("a", "new", clock.Now(), Long));
    EXPECT_EQ(Stored("b"), Entry("b", "token-2", used, Long));  // the old one stays
    EXPECT_EQ(Stored("c"), Entry("c", "new", clock.Now(), Long));
    RunPass(2);
    EXPECT_EQ(client->Calls().size(), 6u);  // and is not put back
}

TEST_F(JwtAuthenticatorMaintenanceTest, TokenThatCannotBeStoredIsAFailedRefresh) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "a");
    const auto before = Stored("a");
    files.FailEvery("BeginReplace", 28);

    RunPass(1);

    EXPECT_EQ(
        logger->Messages(3),
        Texts{"Caught exception 'Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" +
              PathOf("a") + "-s' for write.' when trying to refresh token for a"});
    EXPECT_EQ(Stored("a"), before);
}

TEST_F(JwtAuthenticatorMaintenanceTest, PassEndsAfterTheCallThatTheStopFinds) {
    auto authenticator = MakeWaiting();
    for (const char* name : {"a", "b", "c"})
        Use(*authenticator, name);
    PutEntry("old", "stored", clock.Now() - Tick, 0);
    logger->Clear();
    std::promise<void> asked;
    client->AnswerWith([&](const auto&, Cancellation::Token token) -> OAuth2Token {
        asked.set_value();
        while (!token.IsCancelled())
            std::this_thread::yield();
        throw Cancellation::OperationCancelledException();
    });
    clock.Advance(LongestWait);
    asked.get_future().wait();

    authenticator.reset();

    EXPECT_EQ(client->ServiceNames(), (Texts{"a", "b", "c", "a"}));
    EXPECT_EQ(logger->Messages(),
              (Texts{"Refreshing token for a",
                     "Caught exception 'Operation cancelled.' when trying to refresh token for a",
                     "Removing expired token for old", "Thread exiting"}));
}

TEST_F(JwtAuthenticatorMaintenanceTest, StopDuringTheWaitRunsOnePassWhoseOnlyCallIsCancelled) {
    auto authenticator = MakeWaiting();
    Use(*authenticator, "a");
    Use(*authenticator, "b");

    authenticator.reset();  // returns although nobody moves the clock

    ASSERT_EQ(client->ServiceNames(), (Texts{"a", "b", "a"}));
    EXPECT_TRUE(client->Calls()[2].cancelled);
    EXPECT_EQ(clock.Waits().size(), 1u);
}

/// A clock that can wake a wait for no reason, and that calls back when it is read and when a wait begins.
class RestlessClock : public FakeClock {
public:
    Duration SteadyNow() override {
        if (onSteadyNow) onSteadyNow();
        return FakeClock::SteadyNow();
    }
    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        if (idleWakes-- > 0) return;
        if (onWait) onWait();
        FakeClock::Wait(condition, lock, atMost);
    }

    std::atomic<int> idleWakes{0};
    // Set before the thread starts:
    std::function<void()> onSteadyNow;
    std::function<void()> onWait;
};

TEST_F(JwtAuthenticatorMaintenanceTest, WakeForNoReasonIsNoEndOfTheWait) {
    RestlessClock restless;
    restless.idleWakes = 3;
    const Platform::Testing::Replace<Platform::IClock> replaced(restless);
    const auto authenticator = Make();
    restless.AwaitWaits(1);

    EXPECT_EQ(files.Texts(), Texts{});
    EXPECT_EQ(restless.Waits(), std::vector<Duration>{std::chrono::minutes(100)});
}

TEST_F(JwtAuthenticatorMaintenanceTest, StopThatComesJustBeforeAWaitIsSeenByTheWait) {
    RestlessClock restless;
    std::atomic<bool> stopping = false;
    Cancellation::Token stop;
    restless.onSteadyNow = [&] {
        if (stopping.exchange(false)) stop.Cancel();
    };
    const Platform::Testing::Replace<Platform::IClock> replaced(restless);
    client->AnswerWith([&](const FakeOAuth2Client::Call& call, Cancellation::Token token) {
        if (!call.metaData) return FakeOAuth2Client::Token("t", Long);
        // The refresh of the first pass: the next wait begins with the clock.
        stop = token;
        stopping = true;
        return FakeOAuth2Client::Token("t", Long);
    });
    auto authenticator = Make();
    restless.AwaitWaits(1);
    Use(*authenticator, "a");

    restless.Advance(LongestWait);
    while (!logger->Has(0, "Thread exiting") && restless.Waits().size() < 2)
        std::this_thread::yield();

    EXPECT_EQ(restless.Waits().size(), 1u) << "the second wait did not begin";
}

// The thread has found nothing to stop for and is about to wait: who stops it then must not notify it
// earlier.
TEST_F(JwtAuthenticatorMaintenanceTest, StopThatComesBetweenTheLookAndTheWaitReachesTheWait) {
    RestlessClock restless;
    const Platform::Testing::Replace<Platform::IClock> replaced(restless);
    std::unique_ptr<JwtAuthenticator> authenticator;
    std::unique_ptr<ObservedThread> ending;
    std::atomic<bool> made{false}, ended{false};
    restless.onWait = [&] {
        if (ending) return;
        while (!made)
            std::this_thread::yield();
        ending = std::make_unique<ObservedThread>([&] {
            authenticator.reset();
            ended = true;
        });
        ending->IsBlocked();
    };
    authenticator = Make();
    made = true;

    EXPECT_TRUE(EndsUnaided(ended));

    restless.Advance(LongestWait);  // for a thread that was not told
    while (!ended)
        std::this_thread::yield();
}

TEST_F(JwtAuthenticatorMaintenanceTest, StopThatComesBeforeTheFirstWaitIsSeen) {
    for (int i = 0; i < 100; ++i)
        Make().reset();

    EXPECT_EQ(client->Calls().size(), 0u);
}

TEST_F(JwtAuthenticatorMaintenanceTest, SweepRemovesWhatHasExpiredAndNothingElse) {
    const auto authenticator = MakeWaiting();
    const TimePoint pass = clock.Now() + LongestWait;
    PutEntry("expired", "t", pass - std::chrono::seconds(60) - Tick, 60);
    PutEntry("last tick", "t", pass - std::chrono::seconds(60), 60);
    PutEntry("good", "t", pass, 60);
    files.Put(Directory + "/emptyentry-p", "");
    files.Put(Directory + "/nameless-p", "{\"lastRefreshed\": \"2000-01-01T00:00:00Z\"}");
    logger->Clear();

    RunPass(1);

    EXPECT_EQ(Stored("expired"), std::nullopt);
    EXPECT_NE(Stored("last tick"), std::nullopt);
    EXPECT_NE(Stored("good"), std::nullopt);
    EXPECT_EQ(files.Content(Directory + "/emptyentry-p"), "");
    EXPECT_EQ(files.Content(Directory + "/nameless-p"), std::nullopt);
    auto messages = logger->Messages(0);
    std::sort(messages.begin(), messages.end());
    EXPECT_EQ(messages, (Texts{"Removing expired token for ", "Removing expired token for expired"}));
    for (const auto& entry : logger->Entries())
        EXPECT_EQ(entry.function, "Ombry::ClientCommunications::JwtAuthenticator::removeExpiredTokens");
}

TEST_F(JwtAuthenticatorMaintenanceTest, SweepForgetsWhatMemoryHeldOfTheExpired) {
    const auto authenticator = MakeWaiting();
    PutEntry("a", "stored", clock.Now(), 60);
    clock.Advance(std::chrono::seconds(5));
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer stored");
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });
    files.FailEvery("Remove", 13);

    RunPass(1);

    files.ClearOperations();
    EXPECT_THROW(Use(*authenticator, "a"), std::runtime_error);
    EXPECT_EQ(files.Texts().at(1), "Read " + PathOf("a") + "-p");
}

TEST_F(JwtAuthenticatorMaintenanceTest, SweepForgetsWhatLiesOnTheDiskNoLonger) {
    const auto authenticator = MakeWaiting();
    const TimePoint start = clock.Now();
    PutEntry("a", "first", start, Long);
    clock.Advance(std::chrono::seconds(5));
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer first");
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });
    EXPECT_TRUE(files.Remove(PathOf("a") + "-p"));

    RunPass(1);

    // The same state of the file, with another token: who still knew the first would not read again.
    const TimePoint now = clock.Now();
    clock.SetNow(start);
    PutEntry("a", "other", start, Long);
    clock.SetNow(now);
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer other");
}

TEST_F(JwtAuthenticatorMaintenanceTest, RefreshForgetsTheTokenThatItReplaced) {
    const auto authenticator = MakeWaiting();
    const TimePoint start = clock.Now();
    PutEntry("a", "first", start, Long);
    clock.Advance(std::chrono::seconds(5));
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer first");

    RunPass(1);

    // The same state of the file, with another token: who still knew the first would not read again.
    EXPECT_TRUE(files.Remove(PathOf("a") + "-p"));
    const TimePoint now = clock.Now();
    clock.SetNow(start);
    PutEntry("a", "other", start, Long);
    clock.SetNow(now);
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer other");
}

TEST_F(JwtAuthenticatorMaintenanceTest, SweepLeavesNoTokenInFreedMemory) {
    const std::string token = "a token too long for a string object";
    PutEntry("good", token, clock.Now() + LongestWait, 60);
    PutEntry("expired", token, clock.Now(), 60);
    files.FailEvery("Remove", 13);  // the disk of these tests would free the entry, plain as it is
    // Memory is watched by the thread that frees it, from its first wait to its second.
    RestlessClock restless;
    std::optional<FreedMemory> freed;
    std::size_t left = 1;
    restless.onWait = [&] {
        if (freed) left = freed->BlocksWithTheSecret();
        freed ? freed.reset() : void(freed.emplace(token));
    };
    const Platform::Testing::Replace<Platform::IClock> replaced(restless);
    const auto authenticator = Make();
    restless.AwaitWaits(1);

    restless.Advance(LongestWait);
    restless.AwaitWaits(2);

    EXPECT_EQ(left, 0u);
    EXPECT_EQ(logger->Messages().back(), "Removing expired token for expired");
}

TEST_F(JwtAuthenticatorMaintenanceTest, BothCopiesOfAnEntryCountOnce) {
    const auto authenticator = MakeWaiting();
    PutEntry("a", "t", clock.Now(), 60);
    files.Put(PathOf("a") + "-s", "half of a new ent");
    logger->Clear();
    files.ClearOperations();

    RunPass(1);

    EXPECT_EQ(files.Texts(),
              (Texts{"List " + Directory, "Read " + PathOf("a") + "-p",
                     "Remove " + PathOf("a") + "-p Unsynced", "Remove " + PathOf("a") + "-s Unsynced"}));
    EXPECT_EQ(logger->Messages(), Texts{"Removing expired token for a"});
}

TEST_F(JwtAuthenticatorMaintenanceTest, RefreshComesBeforeTheSweep) {
    const auto authenticator = MakeWaiting();
    client->SetExpiresIn(1);
    Use(*authenticator, "a");

    RunPass(1);

    EXPECT_EQ(Stored("a"), Entry("a", "token-2", clock.Now(), 1));
}

TEST_F(JwtAuthenticatorMaintenanceTest, DirectoryThatIsNotThereIsSweptInSilence) {
    const auto authenticator = MakeWaiting();
    RunPass(1);

    EXPECT_EQ(logger->Messages(), Texts{"Thread starting"});
}

TEST_F(JwtAuthenticatorMaintenanceTest, EntryOfAForeignHandThatCannotBeParsedEndsTheProcess) {
    FakeRandom none(SeedOfWait(0));
    const Platform::Testing::Replace<Platform::IRandom> replaced(none);
    files.Put(Directory + "/foreign-p", "not ours");

    EXPECT_DEATH(
        {
            const auto authenticator = Make();
            clock.AwaitWaits(1);  // behind the first pass
            std::_Exit(0);
        },
        "ERROR: Parse failed");
}

}  // namespace
}  // namespace Ombry::Tests
