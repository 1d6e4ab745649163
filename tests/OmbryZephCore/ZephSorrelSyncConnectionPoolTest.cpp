#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnection.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelTrivialSyncConnectionPool.h"
#include "tests/Fakes/AllocationCount.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using std::chrono::seconds;

class ZephSorrelSyncConnectionPoolTest : public ::testing::Test {
protected:
    static ZephSorrelConnectionParameters Params(const std::string& host = "host") {
        return ZephSorrelConnectionParameters(host, 80);
    }

    ZephSorrelSyncConnectionIf* Connected(const ZephSorrelConnectionParameters& params = Params()) {
        ZephSorrelSyncConnectionIf* const pConnection = pool->GetConnection(params);
        EXPECT_EQ(pConnection->EnsureConnected(), 0u);
        return pConnection;
    }

    /// A connection that has gone back to the pool, alive.
    ZephSorrelSyncConnectionIf* Idle(const ZephSorrelConnectionParameters& params = Params()) {
        ZephSorrelSyncConnectionIf* const pConnection = Connected(params);
        EXPECT_EQ(pool->ReleaseConnection(pConnection), 0u);
        return pConnection;
    }

    void Start(std::uint32_t nMaxIdle, std::uint32_t nScanInterval) {
        const std::size_t before = clock.Waits().size();
        EXPECT_EQ(pool->Start(nMaxIdle, nScanInterval), 0u);
        AwaitWait(before);
    }

    /// Lets a wait of the eviction thread end, and its scan.
    void Scan(seconds after) {
        const std::size_t before = clock.Waits().size();
        clock.Advance(after);
        AwaitWait(before);
    }

    void AwaitWait(std::size_t before) {
        while (clock.Waits().size() <= before)
            std::this_thread::yield();
    }

    FakeClock clock;
    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    std::optional<ZephSorrelSyncConnectionPool> pool{std::in_place, logger};
};

TEST_F(ZephSorrelSyncConnectionPoolTest, ANewConnectionIsConfiguredAndNotConnected) {
    ZephSorrelSyncConnectionIf* const pConnection = pool->GetConnection(Params());
    EXPECT_EQ(pConnection->GetParameters().GetHost(), "host");
    EXPECT_EQ(pConnection->GetParameters().GetPort(), 80);
    EXPECT_FALSE(pConnection->IsConnected());
    EXPECT_EQ(sockets.Calls().size(), 0u) << "connecting is the caller's, outside the pool";
    EXPECT_EQ(pConnection->EnsureConnected(), 0u);
    EXPECT_TRUE(pConnection->IsConnected());
    EXPECT_EQ(pool->ReleaseConnection(pConnection), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AConnectionThatIsUpIsKeptAndGivenOutAgain) {
    ZephSorrelSyncConnectionIf* const pConnection = Idle();
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    EXPECT_EQ(pool->GetConnection(Params()), pConnection);
    EXPECT_TRUE(pConnection->IsConnected());
    ZephSorrelSyncConnectionIf* const pOther = pool->GetConnection(Params());
    EXPECT_NE(pOther, pConnection) << "never in a hand and in the pool at once";
    EXPECT_FALSE(pOther->IsConnected());
    pool->ReleaseConnection(pConnection);
    pool->ReleaseConnection(pOther);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, TheNewestIsGivenOutFirst) {
    ZephSorrelSyncConnectionIf* const pFirst = Connected();
    ZephSorrelSyncConnectionIf* const pSecond = Connected();
    ZephSorrelSyncConnectionIf* const pThird = Connected();
    for (auto* pConnection : {pSecond, pFirst, pThird})
        pool->ReleaseConnection(pConnection);
    EXPECT_EQ(pool->GetConnection(Params()), pThird);
    EXPECT_EQ(pool->GetConnection(Params()), pFirst);
    EXPECT_EQ(pool->GetConnection(Params()), pSecond);
    for (auto* pConnection : {pSecond, pFirst, pThird})
        pool->ReleaseConnection(pConnection);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, OtherParametersHaveConnectionsOfTheirOwn) {
    ZephSorrelSyncConnectionIf* const pConnection = Idle(Params("a"));
    ZephSorrelSyncConnectionIf* const pOther = pool->GetConnection(Params("b"));
    EXPECT_NE(pOther, pConnection);
    EXPECT_EQ(pOther->GetParameters().GetHost(), "b");
    ZephSorrelConnectionParameters secure = Params("a");
    secure.SetUseSSL(true);
    ZephSorrelSyncConnectionIf* const pSecure = pool->GetConnection(secure);
    EXPECT_NE(pSecure, pConnection);
    EXPECT_EQ(pool->GetConnection(Params("a")), pConnection);
    for (auto* p : {pConnection, pOther, pSecure})
        pool->ReleaseConnection(p);
}

// What was judged by one rule is never lent to a caller with another one, also where it was asked for last.
TEST_F(ZephSorrelSyncConnectionPoolTest, OtherRulesForTheCertificateHaveConnectionsOfTheirOwn) {
    ZephSorrelConnectionParameters pinned = Params(), otherPin = Params(), unchecked = Params();
    pinned.SetCertificateValidation({2, "A"});
    otherPin.SetCertificateValidation({2, "B"});
    unchecked.SetCertificateValidation({0, "A"});
    for (const ZephSorrelConnectionParameters& other : {otherPin, unchecked}) {
        ZephSorrelSyncConnectionIf* const pConnection = Idle(pinned);
        ZephSorrelSyncConnectionIf* const pOther = pool->GetConnection(other);
        ASSERT_NE(pOther, pConnection);
        EXPECT_EQ(pool->GetConnection(pinned), pConnection);
        for (auto* p : {pConnection, pOther})
            pool->ReleaseConnection(p);
    }
}

TEST_F(ZephSorrelSyncConnectionPoolTest, ThereIsNoLimitOnTheirNumber) {
    std::vector<ZephSorrelSyncConnectionIf*> all;
    for (int i = 0; i < 100; ++i)
        all.push_back(Connected());
    EXPECT_EQ(sockets.OpenSockets(), 100u);
    for (auto* pConnection : all)
        pool->ReleaseConnection(pConnection);
    EXPECT_EQ(sockets.OpenSockets(), 100u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AConnectionThatIsDownIsDeletedAtItsRelease) {
    ZephSorrelSyncConnectionIf* const pConnection = Connected();
    pConnection->Disconnect();
    pool->ReleaseConnection(pConnection);
    ZephSorrelSyncConnectionIf* const pNext = pool->GetConnection(Params());
    EXPECT_FALSE(pNext->IsConnected());
    pool->ReleaseConnection(pNext);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AConnectionThatIsDownNeverStandsInFrontOfOneThatIsUp) {
    ZephSorrelSyncConnectionIf* const pUp = Connected();
    ZephSorrelSyncConnectionIf* const pDown = Connected();
    pDown->Disconnect();
    pool->ReleaseConnection(pUp);
    pool->ReleaseConnection(pDown);
    ZephSorrelSyncConnectionIf* const pNext = pool->GetConnection(Params());
    EXPECT_TRUE(pNext->IsConnected());
    pool->ReleaseConnection(pNext);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AConnectionThatWasAskedToCloseIsDeletedAtItsRelease) {
    ZephSorrelSyncConnectionIf* const pConnection = Connected();
    pConnection->GetHttpConnection().SendRequest("GET", "/", true, nullptr, nullptr, nullptr, false, 0);
    EXPECT_TRUE(pConnection->IsConnected());
    EXPECT_TRUE(pConnection->GetHttpConnection().IsCloseRequested());
    pool->ReleaseConnection(pConnection);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AReleaseTakesNoMemory) {
    std::vector<ZephSorrelSyncConnectionIf*> lent;
    for (int i = 0; i < 100; ++i)
        lent.push_back(Connected());
    const std::size_t before = AllocationsOfThisThread();
    for (auto* pConnection : lent)
        EXPECT_EQ(pool->ReleaseConnection(pConnection), 0u) << "it runs in a destructor";
    EXPECT_EQ(AllocationsOfThisThread(), before);
    EXPECT_EQ(sockets.OpenSockets(), 100u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, ALoanThatThereIsNoMemoryForLeavesNoTrace) {
    bool failed = true;
    for (std::size_t n = 1; failed; ++n) {
        const auto params = Params("host" + std::to_string(n));
        const FailingAllocation failing(n);
        try {
            ZephSorrelSyncConnectionIf* const pConnection = pool->GetConnection(params);
            EXPECT_FALSE(failing.Failed()) << n;
            pool->ReleaseConnection(pConnection);
        } catch (const std::bad_alloc&) {
        }
        failed = failing.Failed();
        EXPECT_TRUE(!FailingAllocation::Fails || n > 1 || failed) << "a loan takes memory";
    }
    Idle();
    EXPECT_EQ(sockets.OpenSockets(), 1u) << "the pool lends and keeps as ever";
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AForeignConnectionIsIgnoredAndNotDeleted) {
    ZephSorrelSyncConnection mine(logger, false);
    mine.Configure(Params());
    EXPECT_EQ(mine.EnsureConnected(), 0u);
    EXPECT_EQ(pool->ReleaseConnection(&mine), 0u);
    EXPECT_TRUE(mine.IsConnected());

    ZephSorrelSyncConnectionPool other(logger);
    ZephSorrelSyncConnectionIf* const pOther = other.GetConnection(Params());
    EXPECT_EQ(pOther->EnsureConnected(), 0u);
    EXPECT_EQ(pool->ReleaseConnection(pOther), 0u);
    EXPECT_TRUE(pOther->IsConnected());
    EXPECT_EQ(other.ReleaseConnection(pOther), 0u);
    EXPECT_EQ(pool->ReleaseConnection(nullptr), 0u);
    ZephSorrelSyncConnectionIf* const pNew = pool->GetConnection(Params());
    EXPECT_FALSE(pNew->IsConnected()) << "neither went into this pool";
    pool->ReleaseConnection(pNew);
}

// --- Eviction ---

TEST_F(ZephSorrelSyncConnectionPoolTest, AnIdleConnectionStaysAtExactlyTheMostAndGoesASecondLater) {
    Start(300, 300);
    Idle();
    Scan(seconds(300));
    EXPECT_EQ(sockets.OpenSockets(), 1u) << "300 seconds";
    Scan(seconds(300));
    EXPECT_EQ(sockets.OpenSockets(), 0u) << "600 seconds";

    Start(300, 301);
    Idle();
    Scan(seconds(301));
    EXPECT_EQ(sockets.OpenSockets(), 0u) << "301 seconds";
}

TEST_F(ZephSorrelSyncConnectionPoolTest, ScansComeAtTheIntervalAndNotBefore) {
    Start(10, 300);
    Idle();
    clock.Advance(seconds(299));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    Scan(seconds(1));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(clock.Waits().front(), Duration(seconds(300)));
}

TEST_F(ZephSorrelSyncConnectionPoolTest, TheOldestGoAndTheYoungerStay) {
    ZephSorrelSyncConnectionIf* const pOld = Connected();
    ZephSorrelSyncConnectionIf* const pYoung = Connected();
    ZephSorrelSyncConnectionIf* const pElsewhere = Connected(Params("elsewhere"));
    Start(300, 400);
    pool->ReleaseConnection(pOld);
    pool->ReleaseConnection(pElsewhere);
    clock.Advance(seconds(100));
    pool->ReleaseConnection(pYoung);
    Scan(seconds(300));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    EXPECT_EQ(pool->GetConnection(Params()), pYoung);
    pool->ReleaseConnection(pYoung);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, BehindAYoungOneAnOlderOneStaysToo) {
    ZephSorrelSyncConnectionIf* const pFirst = Connected();
    ZephSorrelSyncConnectionIf* const pSecond = Connected();
    Start(300, 10);
    const TimePoint begin = clock.Now();
    pool->ReleaseConnection(pFirst);
    clock.SetNow(begin - seconds(100));
    pool->ReleaseConnection(pSecond);
    clock.SetNow(begin + seconds(240));
    Scan(seconds(10));
    EXPECT_EQ(sockets.OpenSockets(), 2u) << "idle for 250 and 350 seconds";
    Scan(seconds(51));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, OneScanDeletesAllThatAreTooOld) {
    std::vector<ZephSorrelSyncConnectionIf*> all{Connected(), Connected(), Connected(Params("elsewhere")),
                                                 Connected(Params("elsewhere"))};
    Start(300, 301);
    for (auto* pConnection : all)
        pool->ReleaseConnection(pConnection);
    Scan(seconds(301));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, NothingIsKeptForParametersWithoutAnIdleConnection) {
    Start(300, 301);
    const auto allocationsOfALoan = [this] {
        const std::size_t before = AllocationsOfThisThread();
        ZephSorrelSyncConnectionIf* const pConnection = pool->GetConnection(Params());
        const std::size_t allocations = AllocationsOfThisThread() - before;
        EXPECT_EQ(pConnection->EnsureConnected(), 0u);
        pool->ReleaseConnection(pConnection);
        return allocations;
    };
    const std::size_t first = allocationsOfALoan();
    EXPECT_EQ(allocationsOfALoan(), 0u) << "the same connection, and the same place";
    Scan(seconds(301));
    EXPECT_EQ(allocationsOfALoan(), first) << "the place went with its last connection";
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AReleaseBeginsTheIdleTimeAnew) {
    Start(300, 200);
    ZephSorrelSyncConnectionIf* const pConnection = Idle();
    Scan(seconds(200));
    EXPECT_EQ(pool->GetConnection(Params()), pConnection);
    pool->ReleaseConnection(pConnection);
    Scan(seconds(200));
    EXPECT_EQ(sockets.OpenSockets(), 1u) << "idle for 200 of 400 seconds";
    Scan(seconds(200));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AConnectionInAHandIsNeverEvicted) {
    Start(300, 301);
    ZephSorrelSyncConnectionIf* const pConnection = Connected();
    Scan(seconds(301));
    Scan(seconds(301));
    EXPECT_TRUE(pConnection->IsConnected());
    pool->ReleaseConnection(pConnection);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AClockThatIsSetBackMakesConnectionsYoung) {
    Start(300, 300);
    Idle();
    clock.SetNow(clock.Now() - std::chrono::hours(24));
    Scan(seconds(300));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AClockThatIsSetForwardMakesConnectionsOldAtTheNextScan) {
    Start(300, 1);
    Idle();
    clock.SetNow(clock.Now() + seconds(300));
    Scan(seconds(1));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AScanIntervalBeyondTenDaysIsTenDays) {
    Start(300, 4'000'000'000);
    Idle();
    EXPECT_EQ(clock.Waits().back(), Duration(seconds(864'000)));
    clock.Advance(seconds(863'999));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    Scan(seconds(1));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, TheLargestIdleTimeEvictsNothing) {
    Start(4'294'967'295, 864'000);
    Idle();
    Scan(seconds(864'000));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, AStartStopsTheRunningThreadWhoseLastPassDeletesWhatIsIdle) {
    Start(300, 300);
    Idle();
    Start(300, 10);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    Idle();
    Scan(seconds(10));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    EXPECT_EQ(clock.Waits().back(), Duration(seconds(10)));
    Scan(seconds(300));
    EXPECT_EQ(sockets.OpenSockets(), 0u) << "the new thread runs";
}

TEST_F(ZephSorrelSyncConnectionPoolTest, TheEndOfThePoolDeletesYoungConnectionsToo) {
    Start(300, 300);
    Idle(Params("a"));
    Idle(Params("b"));
    pool.reset();
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, APoolThatWasNeverStartedKeepsItsConnectionsToItsEnd) {
    Idle();
    clock.Advance(std::chrono::hours(1000));
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    pool.reset();
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, VerbosityReachesTheConnectionsThatAreMadeFromThenOn) {
    ZephSorrelSyncConnectionIf* const pQuiet = Connected();
    EXPECT_FALSE(logger->Has(0, "Initialization succeeded.  sessionid = 0"));
    pool->SetVerbose(true);
    ZephSorrelSyncConnectionIf* const pLoud = Connected();
    EXPECT_TRUE(logger->Has(0, "Initialization succeeded.  sessionid = 0"));
    pool->ReleaseConnection(pQuiet);
    pool->ReleaseConnection(pLoud);
}

TEST_F(ZephSorrelSyncConnectionPoolTest, ManyThreadsShareThePoolWhileItIsScanned) {
    Start(0, 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([this, i] {
            for (int n = 0; n < 40; ++n) {
                ZephSorrelSyncConnectionIf* const pConnection =
                    pool->GetConnection(Params(i % 2 != 0 ? "a" : "b"));
                EXPECT_EQ(pConnection->EnsureConnected(), 0u);
                EXPECT_EQ(pConnection->GetParameters().GetHost(), i % 2 != 0 ? "a" : "b");
                EXPECT_EQ(pool->ReleaseConnection(pConnection), 0u);
                clock.Advance(seconds(1));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    Scan(seconds(1));
    Scan(seconds(1));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

// --- The pool of one ---

class ZephSorrelTrivialSyncConnectionPoolTest : public ZephSorrelSyncConnectionPoolTest {
protected:
    ZephSorrelTrivialSyncConnectionPool one{logger, false, Params()};
};

TEST_F(ZephSorrelTrivialSyncConnectionPoolTest, GivesOutItsConnectionAgainAndAgainEvenIfItIsInAHand) {
    ZephSorrelSyncConnectionIf* const pConnection = one.GetConnection(Params());
    ASSERT_NE(pConnection, nullptr);
    EXPECT_EQ(pConnection->GetParameters().GetHost(), "host");
    EXPECT_EQ(one.GetConnection(Params()), pConnection);
}

TEST_F(ZephSorrelTrivialSyncConnectionPoolTest, GivesNullForOtherParameters) {
    EXPECT_EQ(one.GetConnection(Params("another")), nullptr);
    EXPECT_EQ(one.GetConnection(Params("a")), nullptr);
    ZephSorrelConnectionParameters secure = Params();
    EXPECT_EQ(one.GetConnection(secure.SetUseSSL(true)), nullptr);
}

TEST_F(ZephSorrelTrivialSyncConnectionPoolTest, KeepsItsConnectionUpAtARelease) {
    ZephSorrelSyncConnectionIf* const pConnection = one.GetConnection(Params());
    EXPECT_EQ(pConnection->EnsureConnected(), 0u);
    EXPECT_EQ(one.ReleaseConnection(pConnection), 0u);
    EXPECT_TRUE(pConnection->IsConnected());
    EXPECT_EQ(one.GetConnection(Params()), pConnection);
}

TEST_F(ZephSorrelTrivialSyncConnectionPoolTest, VerbosityReachesItsConnection) {
    EXPECT_EQ(one.GetConnection(Params())->EnsureConnected(), 0u);
    EXPECT_FALSE(logger->Has(0, "Initialization succeeded.  sessionid = 0"));
    ZephSorrelTrivialSyncConnectionPool loud{logger, true, Params()};
    EXPECT_EQ(loud.GetConnection(Params())->EnsureConnected(), 0u);
    EXPECT_TRUE(logger->Has(0, "Initialization succeeded.  sessionid = 0"));
}

TEST_F(ZephSorrelTrivialSyncConnectionPoolTest, RefusesAnotherObject) {
    ZephSorrelSyncConnection mine(logger, false);
    EXPECT_EQ(one.ReleaseConnection(&mine), 5u);
    EXPECT_EQ(one.ReleaseConnection(nullptr), 5u);
}

}  // namespace
}  // namespace Ombry::Tests
