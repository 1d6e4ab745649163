#include "Cancellation/Impl/LinkedTokenState.h"
#include "Cancellation/Impl/TokenStateTimeout.h"
#include "Cancellation/Token.h"
#include "tests/Fakes/AllocationCount.h"
#include "tests/Fakes/FakeClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace Ombry::Cancellation;
using std::chrono::milliseconds;

constexpr Duration Tick(1);
constexpr auto MaxTicks = std::numeric_limits<std::int64_t>::max();
constexpr auto MinTicks = std::numeric_limits<std::int64_t>::min();

class TokenTest : public testing::Test {
protected:
    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
};

class SleepUntilTest : public TokenTest {
protected:
    SleepUntilTest() {
        OnSleep([] {});
    }

    /// Does `hook` after each sleep, and ends a sleep that would never end.
    void OnSleep(std::function<void()> hook) {
        clock.OnSleep([this, hook = std::move(hook)] {
            if (clock.Sleeps().size() > 50) throw std::logic_error("sleeps for ever");
            hook();
        });
    }
};

/// What `work` threw: the exact class and its text, or "nothing".
std::string Thrown(const std::function<void()>& work) {
    try {
        work();
    } catch (const OperationCancelledException& stopped) {
        if (typeid(stopped) == typeid(OperationCancelledException))
            return std::string("cancelled: ") + stopped.what();
        if (typeid(stopped) == typeid(TimeoutException)) return std::string("timeout: ") + stopped.what();
        return "another class";
    }
    return "nothing";
}

std::string Thrown(const Token& token) {
    return Thrown([&] { token.ThrowIfCancelled(); });
}

const std::string Cancelled = "cancelled: Operation cancelled.";
const std::string TimedOut = "timeout: Operation timed out.";

TEST(CancellationExceptionTest, TakesATextInPlaceOfItsOwn) {
    EXPECT_STREQ(OperationCancelledException("stop").what(), "stop");
    EXPECT_STREQ(TimeoutException("Error 11.13").what(), "Error 11.13");
}

TEST(CancellationExceptionTest, TimeoutIsACancellationIsARuntimeError) {
    EXPECT_TRUE((std::is_base_of_v<OperationCancelledException, TimeoutException>));
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, OperationCancelledException>));
}

TEST(TokenStateTest, ClassesStandOnOneAnother) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Impl::Interface>);
    EXPECT_TRUE((std::is_base_of_v<Impl::Interface, Impl::TokenState>));
    EXPECT_TRUE((std::is_base_of_v<Impl::TokenState, Impl::TokenStateBool>));
    EXPECT_TRUE((std::is_base_of_v<Impl::TokenStateBool, Impl::TokenStateTimeout>));
    EXPECT_TRUE((std::is_base_of_v<Impl::TokenStateBool, Impl::LinkedTokenState>));
}

TEST_F(TokenTest, DefaultNeverFires) {
    const Token token;

    clock.Advance(std::chrono::hours(24 * 365 * 100));

    EXPECT_FALSE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), "nothing");
}

TEST_F(TokenTest, CancellableRunsUntilCancel) {
    const Token token = CreateCancellable();
    clock.Advance(std::chrono::hours(24 * 365 * 100));
    EXPECT_FALSE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), "nothing");

    token.Cancel();

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), Cancelled);
}

TEST_F(TokenTest, CancelTwiceStaysCancelled) {
    const Token token = CreateCancellable();

    token.Cancel();
    token.Cancel();

    EXPECT_TRUE(token.IsCancelled());
}

TEST_F(TokenTest, CopiesShareOneState) {
    const Token token = CreateCancellable();
    const Token copy = token;

    copy.Cancel();

    EXPECT_TRUE(token.IsCancelled());
}

TEST_F(TokenTest, SeparateTokensShareNothing) {
    const Token token = CreateCancellable();
    const Token other = CreateCancellable();

    other.Cancel();

    EXPECT_FALSE(token.IsCancelled());
}

TEST_F(TokenTest, StateLivesAsLongAsAnyCopy) {
    Token copy;
    {
        const Token token = CreateCancellable();
        copy = token;
    }

    copy.Cancel();

    EXPECT_TRUE(copy.IsCancelled());
}

TEST_F(TokenTest, TimeoutFiresOnTheTickOfItsDeadlineAndNotBefore) {
    const Token token = CreateTimeout(milliseconds(100));
    clock.Advance(milliseconds(100) - Tick);
    EXPECT_FALSE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), "nothing");

    clock.Advance(Tick);
    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), TimedOut);

    clock.Advance(Tick);
    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), TimedOut);
}

TEST_F(TokenTest, TimeoutOfZeroFiresAtOnce) {
    const Token token = CreateTimeout(Duration(0));

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), TimedOut);
}

TEST_F(TokenTest, TimeoutOfNegativeLengthFiresAtOnce) {
    const Token token = CreateTimeout(-Tick);

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), TimedOut);
}

TEST_F(TokenTest, TimeoutBeyondTheEndOfTimeWrapsAndFiresAtOnce) {
    const Token token = CreateTimeout(Duration(MaxTicks));

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), TimedOut);
}

TEST_F(TokenTest, TimeoutUpToTheLastTickDoesNotWrap) {
    const Token token = CreateTimeout(Duration(MaxTicks - clock.Now().time_since_epoch().count()));

    EXPECT_FALSE(token.IsCancelled());
}

TEST_F(TokenTest, DeadlineBefore1970IsComparedAsSigned) {
    clock.SetNow(TimePoint(Duration(-10)));
    const Token token = CreateTimeout(Duration(5));

    EXPECT_FALSE(token.IsCancelled());
    clock.SetNow(TimePoint(Duration(-5)));
    EXPECT_TRUE(token.IsCancelled());
}

TEST_F(TokenTest, DeadlineIsWallClockTimeThatAJumpOfTheClockMoves) {
    const TimePoint start = clock.Now();
    const Token token = CreateTimeout(milliseconds(100));

    clock.SetNow(start + milliseconds(100));
    EXPECT_TRUE(token.IsCancelled());
    clock.SetNow(start - std::chrono::hours(1));
    EXPECT_FALSE(token.IsCancelled());
}

TEST_F(TokenTest, TimeoutCanBeCancelledBeforeItsDeadline) {
    const Token token = CreateTimeout(milliseconds(100));

    token.Cancel();

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), Cancelled);
}

TEST_F(TokenTest, CancelWinsOverADeadlineThatHasPassed) {
    const Token token = CreateTimeout(Duration(0));

    token.Cancel();

    EXPECT_EQ(Thrown(token), Cancelled);
}

TEST_F(TokenTest, LinkRunsWhileBothSourcesRun) {
    const Token token = Link(CreateCancellable(), CreateTimeout(milliseconds(100)));

    EXPECT_FALSE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), "nothing");
}

TEST_F(TokenTest, LinkFiresWithItsFirstSource) {
    const Token source = CreateCancellable();
    const Token token = Link(source, CreateCancellable());

    source.Cancel();

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), Cancelled);
}

TEST_F(TokenTest, LinkFiresWithItsSecondSource) {
    const Token token = Link(CreateCancellable(), CreateTimeout(milliseconds(100)));

    clock.Advance(milliseconds(100));

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), TimedOut);
}

TEST_F(TokenTest, LinkWithADefaultTokenBehavesAsTheOtherAlone) {
    const Token source = CreateTimeout(milliseconds(100));
    const Token left = Link(source, Token());
    const Token right = Link(Token(), source);
    const Token none = Link(Token(), Token());
    EXPECT_FALSE(left.IsCancelled());
    EXPECT_FALSE(right.IsCancelled());

    clock.Advance(milliseconds(100));

    EXPECT_EQ(Thrown(left), TimedOut);
    EXPECT_EQ(Thrown(right), TimedOut);
    EXPECT_FALSE(none.IsCancelled());
    EXPECT_EQ(Thrown(none), "nothing");
}

TEST_F(TokenTest, CancelOfALinkLeavesItsSourcesAlone) {
    const Token first = CreateCancellable();
    const Token second = CreateTimeout(milliseconds(100));
    const Token token = Link(first, second);

    token.Cancel();

    EXPECT_TRUE(token.IsCancelled());
    EXPECT_EQ(Thrown(token), Cancelled);
    EXPECT_FALSE(first.IsCancelled());
    EXPECT_FALSE(second.IsCancelled());
}

TEST_F(TokenTest, CancelOfALinkWithNothingLeavesASourceThatOthersHoldAlone) {
    const Token source = CreateCancellable();
    const Token token = Link(source, Token());
    token.Cancel();
    EXPECT_TRUE(token.IsCancelled());
    EXPECT_FALSE(source.IsCancelled());
}

TEST_F(TokenTest, LinkOfWhatNobodyElseHoldsWithNothingAllocatesNothing) {
    Token source = CreateCancellable();
    const std::size_t before = AllocationsOfThisThread();
    const Token token = Link(std::move(source), Token());
    EXPECT_EQ(AllocationsOfThisThread(), before);
    token.Cancel();
    EXPECT_EQ(Thrown(token), Cancelled);
}

TEST_F(TokenTest, CancelOfALinkWinsOverASourceThatHasExpired) {
    const Token token = Link(CreateTimeout(Duration(0)), Token());

    token.Cancel();

    EXPECT_EQ(Thrown(token), Cancelled);
}

TEST_F(TokenTest, FirstSourceOfALinkDecidesTheException) {
    const Token expired = CreateTimeout(Duration(0));
    const Token cancelled = CreateCancellable();
    cancelled.Cancel();

    EXPECT_EQ(Thrown(Link(expired, cancelled)), TimedOut);
    EXPECT_EQ(Thrown(Link(cancelled, expired)), Cancelled);
}

TEST_F(TokenTest, LinkKeepsItsSourcesAlive) {
    Token token;
    {
        const Token source = CreateCancellable();
        token = Link(source, Token());
        source.Cancel();
    }

    EXPECT_TRUE(token.IsCancelled());
}

TEST_F(TokenTest, LinksOfLinksReachTheInnermostSource) {
    const Token token =
        Link(Token(), Link(CreateCancellable(), Link(Token(), CreateTimeout(milliseconds(100)))));
    EXPECT_FALSE(token.IsCancelled());

    clock.Advance(milliseconds(100));

    EXPECT_EQ(Thrown(token), TimedOut);
}

TEST_F(TokenTest, ALookAtATokenThatRunsAllocatesNothing) {
    const Token token = Link(CreateTimeout(milliseconds(100)), Link(CreateCancellable(), Token()));
    const std::size_t before = AllocationsOfThisThread();

    const bool stopped = token.IsCancelled();
    token.ThrowIfCancelled();

    EXPECT_EQ(AllocationsOfThisThread(), before);
    EXPECT_FALSE(stopped);
}

TEST_F(TokenTest, CancelIsSeenByEveryOtherThread) {
    const Token token = Link(CreateTimeout(std::chrono::hours(1)), CreateCancellable());
    std::atomic<int> stopped{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i) {
        workers.emplace_back([copy = token, &stopped] {
            for (int looks = 0; !copy.IsCancelled() && looks < 20'000'000; ++looks)
                std::this_thread::yield();
            if (Thrown(copy) == Cancelled) ++stopped;
        });
    }

    token.Cancel();
    for (std::thread& worker : workers)
        worker.join();

    EXPECT_EQ(stopped, 3);
}

TEST_F(SleepUntilTest, SleepsInSlicesOf250MillisecondsAndTheRest) {
    SleepUntil(clock.Now() + milliseconds(600), Token());

    EXPECT_EQ(clock.Sleeps(),
              (std::vector<Duration>{Duration(2'500'000), Duration(2'500'000), Duration(1'000'000)}));
}

TEST_F(SleepUntilTest, ExactSliceIsOneSleep) {
    SleepUntil(clock.Now() + Duration(2'500'000), Token());

    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{Duration(2'500'000)}));
}

TEST_F(SleepUntilTest, OneTickBeyondASliceIsASecondSleepOfOneTick) {
    SleepUntil(clock.Now() + Duration(2'500'001), Token());

    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{Duration(2'500'000), Tick}));
}

TEST_F(SleepUntilTest, PastTargetReturnsWithoutALookAtTheToken) {
    const Token token = CreateCancellable();
    token.Cancel();

    EXPECT_EQ(Thrown([&] { SleepUntil(clock.Now() - Tick, token); }), "nothing");
    EXPECT_EQ(Thrown([&] { SleepUntil(clock.Now(), token); }), "nothing");
    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(SleepUntilTest, CancelledTokenThrowsBeforeTheFirstSlice) {
    const Token token = CreateCancellable();
    token.Cancel();

    EXPECT_EQ(Thrown([&] { SleepUntil(clock.Now() + Tick, token); }), Cancelled);
    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(SleepUntilTest, CancelDuringASliceEndsTheSleepBeforeTheNext) {
    const Token token = CreateCancellable();
    OnSleep([&] {
        if (clock.Sleeps().size() == 2) token.Cancel();
    });

    EXPECT_EQ(Thrown([&] { SleepUntil(clock.Now() + std::chrono::seconds(10), token); }), Cancelled);
    EXPECT_EQ(clock.Sleeps().size(), 2u);
}

TEST_F(SleepUntilTest, CancelDuringTheLastSliceIsNotLookedAt) {
    const Token token = CreateCancellable();
    OnSleep([&] { token.Cancel(); });

    EXPECT_EQ(Thrown([&] { SleepUntil(clock.Now() + milliseconds(250), token); }), "nothing");
    EXPECT_EQ(clock.Sleeps().size(), 1u);
}

TEST_F(SleepUntilTest, ExpiredTokenThrowsTimeout) {
    const Token token = CreateTimeout(milliseconds(300));

    EXPECT_EQ(Thrown([&] { SleepUntil(clock.Now() + std::chrono::seconds(10), token); }), TimedOut);
    EXPECT_EQ(clock.Sleeps().size(), 2u);
}

TEST_F(SleepUntilTest, ClockThatJumpsForwardEndsTheSleep) {
    const TimePoint target = clock.Now() + std::chrono::hours(1);
    OnSleep([&] { clock.SetNow(target); });

    SleepUntil(target, Token());

    EXPECT_EQ(clock.Sleeps().size(), 1u);
}

TEST_F(SleepUntilTest, ClockThatJumpsBackMakesTheSleepLonger) {
    const TimePoint start = clock.Now();
    OnSleep([&] {
        if (clock.Sleeps().size() == 1) clock.SetNow(start);
    });

    SleepUntil(start + milliseconds(250), Token());

    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{Duration(2'500'000), Duration(2'500'000)}));
}

TEST_F(SleepUntilTest, FarthestPossibleTargetDoesNotOverflow) {
    clock.SetNow(TimePoint(Duration(MinTicks)));
    const Token token = CreateCancellable();
    OnSleep([&] { token.Cancel(); });

    EXPECT_EQ(Thrown([&] { SleepUntil(TimePoint(Duration(MaxTicks)), token); }), Cancelled);
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{Duration(2'500'000)}));
}

}  // namespace
}  // namespace Ombry::Tests
