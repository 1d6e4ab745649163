#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "tests/OmbryZephCore/ReactorFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using Cancellation::Token;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using ZephIOTaskManager_SyncSilenceTest = ReactorFixture;

// --- Time-out and cancellation ---

TEST_F(ZephIOTaskManager_SyncSilenceTest, SilenceFailsEveryTransferReadsFirstAndThenRunsTheirTasks) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    sockets.SetSendRoom(h1, 0);
    sockets.SetSendRoom(h2, 0);
    Task cleanUp = Note("clean up");
    for (SocketHandle h : {h1, h2}) {
        Read(h);
        Write(h);
    }
    a.onComplete = [&](std::uint32_t nType) {
        EXPECT_EQ(a.lastBytes, 0u);
        if (nType == 0) manager.ScheduleTask(&cleanUp);
    };
    LetTimePass();
    EXPECT_EQ(manager.DoPendingIO(3, Token()), 13u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "b read 0 failed", "a write 1 failed",
                                    "b write 1 failed", "clean up"));
    EXPECT_EQ(b.lastBytes, 0u);
    EXPECT_EQ(sockets.CallsOf("Select"), 3u) << "the deadline counts as reached when the clock shows it";
    EXPECT_EQ(sockets.Calls().size(), 3u);
    EXPECT_THAT(logger->Messages(3), ElementsAre("Operation timed out."));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephIOTaskManager_Sync::DoPendingIO");
    EXPECT_FALSE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, TheTimeOutHasTheGrainOfTheClocksWholeSeconds) {
    clock.SetNow(TimePoint(Duration(SecondsToTicks(1'600'000'000) + TicksPerSecond * 9 / 10)));
    const SocketHandle h = Connect(a);
    Read(h);
    sockets.OnIdle([&](std::int64_t) { clock.Advance(Second / 10); });
    EXPECT_EQ(manager.DoPendingIO(1, Token()), 13u);
    EXPECT_EQ(sockets.CallsOf("Select"), 1u);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, TheDeadlineIsMeasuredAfreshAfterEveryRound) {
    const SocketHandle h = Connect(a);
    Read(h, 1);
    int silentSeconds = 0;
    sockets.OnIdle([&](std::int64_t) {
        clock.Advance(Second);
        if (++silentSeconds % 2 == 0 && silentSeconds <= 10) sockets.Deliver(h, "x");
    });
    a.onComplete = [&](std::uint32_t) {
        if (silentSeconds <= 10) Read(h, 1);
    };
    EXPECT_EQ(manager.DoPendingIO(3, Token()), 13u);
    EXPECT_EQ(silentSeconds, 13) << "ten seconds with five bytes, then three of silence";
    EXPECT_EQ(a.completions, 6);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, ATimeOutOfZeroWaitsWithoutEnd) {
    const SocketHandle h = Connect(a);
    Read(h);
    int waits = 0;
    sockets.OnIdle([&](std::int64_t) {
        clock.Advance(Second * 3600);
        if (++waits == 1000) sockets.Deliver(h, "x");
    });
    EXPECT_EQ(manager.DoPendingIO(0, Token()), 0u);
    EXPECT_EQ(waits, 1000);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, TheLargestTimeOutDoesNotWrapIntoThePast) {
    const SocketHandle h = Connect(a);
    Read(h);
    int waits = 0;
    sockets.OnIdle([&](std::int64_t) {
        clock.Advance(Second);
        if (++waits == 3) sockets.Deliver(h, "x");
    });
    EXPECT_EQ(manager.DoPendingIO(0xFFFFFFFFu, Token()), 0u);
    EXPECT_EQ(waits, 3);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, ATokenThatFiresEndsTheWaitAsATimeOut) {
    const SocketHandle h = Connect(a);
    sockets.SetSendRoom(h, 0);
    Read(h);
    Write(h);
    const Token token = Cancellation::CreateCancellable();
    int waits = 0;
    sockets.OnIdle([&](std::int64_t) {
        if (++waits == 2) token.Cancel();
    });
    EXPECT_EQ(manager.DoPendingIO(0, token), 13u);
    EXPECT_EQ(waits, 2);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "a write 1 failed"));
    EXPECT_THAT(logger->Messages(3), ElementsAre("Operation timed out."));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, ATokenThatFiredBeforeIsSeenOnlyAfterASilentSecond) {
    const SocketHandle h = Connect(a);
    const Token token = Cancellation::CreateCancellable();
    token.Cancel();
    Write(h);
    EXPECT_EQ(manager.DoPendingIO(5, token), 0u);
    EXPECT_THAT(events, ElementsAre("a write 1 ok 5"));

    Read(h);
    LetTimePass();
    EXPECT_EQ(manager.DoPendingIO(5, token), 13u);
    EXPECT_EQ(sockets.CallsOf("Select"), 2u);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, APeerThatKeepsSendingIsNeitherTimedOutNorCancelled) {
    const SocketHandle h = Connect(a);
    const Token token = Cancellation::CreateCancellable();
    token.Cancel();
    sockets.Deliver(h, std::string(20, 'x'));
    Read(h, 1);
    a.onComplete = [&](std::uint32_t) {
        clock.Advance(Second * 10);
        if (a.completions < 20) Read(h, 1);
    };
    EXPECT_EQ(manager.DoPendingIO(1, token), 0u);
    EXPECT_EQ(a.completions, 20);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, AFailedWaitFailsEveryTransferYetReturnsZero) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    Task cleanUp = Note("clean up");
    Read(h1);
    Write(h1);
    Read(h2);
    b.onComplete = [&](std::uint32_t) { manager.ScheduleTask(&cleanUp); };
    sockets.FailNthCall("Select", 1, 22);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "b read 0 failed", "a write 1 failed", "clean up"));
    EXPECT_THAT(logger->Messages(3), ElementsAre("select failed. Last error = 22"));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephIOTaskManager_Sync::DoPendingIO");
    EXPECT_EQ(sockets.Calls().size(), 1u);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, TheNumber4IsAFailedWaitLikeAnyOther) {
    const SocketHandle h = Connect(a);
    Read(h);
    sockets.FailNthCall("Select", 1, 4);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, WhatAFailureStartsBehindTheWalkWaitsForTheNextCall) {
    const SocketHandle h = Connect(a);
    Read(h);
    a.onComplete = [&](std::uint32_t) {
        if (a.completions == 1) Read(h);
    };
    LetTimePass();
    EXPECT_EQ(manager.DoPendingIO(1, Token()), 13u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed"));
    EXPECT_TRUE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, AWriteThatAFailingReadStartsFailsInTheSameTimeOut) {
    const SocketHandle h = Connect(a);
    Read(h);
    a.onComplete = [&](std::uint32_t nType) {
        if (nType == 0) Write(h);
    };
    LetTimePass();
    EXPECT_EQ(manager.DoPendingIO(1, Token()), 13u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "a write 1 failed"));
    EXPECT_EQ(sockets.CallsOf("Send"), 0u);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, AHandlerThatUnregistersInATimeOutIsNotCalledAgain) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    for (SocketHandle h : {h1, h2}) {
        Read(h);
        sockets.SetSendRoom(h, 0);
        Write(h);
    }
    a.onComplete = [&](std::uint32_t) {
        manager.UnRegisterForIOCompletion(h1);
        manager.UnRegisterForIOCompletion(h2);
    };
    LetTimePass();
    EXPECT_EQ(manager.DoPendingIO(1, Token()), 13u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, TheObjectServesFurtherCallsAfterATimeOut) {
    const SocketHandle h = Connect(a);
    Read(h);
    LetTimePass();
    EXPECT_EQ(manager.DoPendingIO(1, Token()), 13u);
    sockets.Deliver(h, "x");
    EXPECT_EQ(Read(h), 0u);
    EXPECT_EQ(manager.DoPendingIO(1, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "a read 0 ok 1"));
}

// --- Tasks ---

TEST_F(ZephIOTaskManager_SyncSilenceTest, TasksRunFirstInFirstOut) {
    Task one = Note("1");
    Task two = Note("2");
    Task three = Note("3");
    for (Task* task : {&two, &one, &three, &one})
        manager.ScheduleTask(task);
    manager.DoPendingIO(0, Token());
    EXPECT_THAT(events, ElementsAre("2", "1", "3", "1"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, CancelTaskRemovesEveryOccurrenceAndKeepsTheOrderOfTheOthers) {
    Task one = Note("1");
    Task two = Note("2");
    Task three = Note("3");
    for (Task* task : {&one, &two, &one, &three, &one})
        manager.ScheduleTask(task);
    manager.CancelTask(&one);
    manager.DoPendingIO(0, Token());
    EXPECT_THAT(events, ElementsAre("2", "3"));
    manager.CancelTask(&one);
    EXPECT_FALSE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, ATaskMayScheduleItselfAndRunsAgainInTheSameCall) {
    int runs = 0;
    Task task([&] {
        if (++runs < 5) manager.ScheduleTask(&task);
    });
    manager.ScheduleTask(&task);
    EXPECT_EQ(manager.DoPendingIO(0, Token()), 0u);
    EXPECT_EQ(runs, 5);
    EXPECT_THAT(sockets.Calls(), IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, ATaskMayCancelItselfAndOthers) {
    Task other = Note("other");
    Task last = Note("last");
    Task canceller([&] {
        events.push_back("canceller");
        manager.CancelTask(&canceller);
        manager.CancelTask(&other);
    });
    for (Task* task : {&canceller, &other, &canceller, &last})
        manager.ScheduleTask(task);
    manager.DoPendingIO(0, Token());
    EXPECT_THAT(events, ElementsAre("canceller", "last"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, ATaskThatEndsTheLastTransferEndsTheCallWithoutAWait) {
    const SocketHandle h = Connect(a);
    Read(h);
    Task tearDown([&] { manager.UnRegisterForIOCompletion(h); });
    manager.ScheduleTask(&tearDown);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), IsEmpty());
}

// --- Logging ---

TEST_F(ZephIOTaskManager_SyncSilenceTest, VerboseTracesEachStep) {
    manager.SetVerbose(true);
    const SocketHandle h = Connect(a);
    Task task = Note("task");
    sockets.Deliver(h, "data");
    manager.ScheduleTask(&task);
    Read(h, 16);
    Write(h, 5);
    manager.DoPendingIO(5, Token());
    EXPECT_THAT(logger->Messages(0),
                ElementsAre("Scheduling user task. pTask = " + PointerText(&task),
                            "Read operation started. nTaskType = 0, h = 100, nBytes = 16, pBuffer = " +
                                PointerText(input.data()),
                            "Write operation started. nTaskType = 1, h = 100, nBytes = 5, pBuffer = " +
                                PointerText(output.data()),
                            "Dispatching user task. pTask = " + PointerText(&task),
                            "Read operation completed. bytes read = 4, socket = 100",
                            "Write operation completed. bytes written = 5, socket = 100"));
    EXPECT_EQ(logger->Entries().size(), 6u);
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephIOTaskManager_Sync::ScheduleTask");
    EXPECT_EQ(logger->Entries()[3].function, "OmbryZephCore::ZephIOTaskManager_Sync::ProcessUserTasks");
    EXPECT_EQ(logger->Entries()[4].function, "OmbryZephCore::ZephIOTaskManager_Sync::ProcessReadCompletions");
    EXPECT_EQ(logger->Entries()[5].function,
              "OmbryZephCore::ZephIOTaskManager_Sync::ProcessWriteCompletions");
    EXPECT_THAT(logger->Entries()[0].file, HasSubstr("ZephIOTaskManager_Sync.cpp"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, VerboseTracesAreOffByDefaultAndCanBeTurnedOffAgain) {
    Task task = Note("task");
    manager.ScheduleTask(&task);
    manager.DoPendingIO(0, Token());
    manager.SetVerbose(true);
    manager.SetVerbose(false);
    manager.ScheduleTask(&task);
    manager.DoPendingIO(0, Token());
    EXPECT_THAT(logger->Messages(), IsEmpty());
    EXPECT_EQ(logger->EnabledCalls(), 0);
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, AVerboseFailureIsLoggedOnce) {
    manager.SetVerbose(true);
    const SocketHandle h = Connect(a);
    Read(h);
    logger->Clear();
    sockets.Break(h, 104);
    manager.DoPendingIO(5, Token());
    EXPECT_THAT(logger->Messages(), ElementsAre("recv failed. socket = 100, Last error = 104"));
}

TEST_F(ZephIOTaskManager_SyncSilenceTest, WithoutALoggerEverythingWorksTheSame) {
    ZephIOTaskManager_Sync silent(nullptr);
    silent.SetVerbose(true);
    const SocketHandle h = sockets.AddConnected();
    Task task = Note("task");
    EXPECT_EQ(silent.RegisterForIOCompletion(h, &a), 0u);
    EXPECT_EQ(silent.RegisterForIOCompletion(h, &a), 200u);
    EXPECT_EQ(silent.StartIO(0, 999, 1, input.data()), 201u);
    EXPECT_EQ(silent.StartIO(0, h, 16, input.data()), 0u);
    EXPECT_EQ(silent.StartIO(0, h, 16, input.data()), 202u);
    silent.ScheduleTask(&task);
    LetTimePass();
    EXPECT_EQ(silent.DoPendingIO(2, Token()), 13u);
    EXPECT_THAT(events, ElementsAre("task", "a read 0 failed"));
}

// --- Every step failing ---

// An exchange of two writes and two reads on two handles; the n-th call of the sockets fails. Every transfer
// that was started ends exactly once, and the call comes back with nothing pending.
TEST_F(ZephIOTaskManager_SyncSilenceTest, WhicheverCallFailsEveryTransferEndsExactlyOnce) {
    for (std::size_t n = 1; n <= 12; ++n) {
        SCOPED_TRACE(n);
        ZephIOTaskManager_Sync one(logger);
        std::array<int, 2> started{};
        std::array<int, 2> ended{};
        std::array<SocketHandle, 2> handles{};
        std::array<Handler*, 2> handlers{&a, &b};
        const auto start = [&](std::size_t i, std::uint32_t nType) {
            ++started[i];
            EXPECT_EQ(one.StartIO(nType, handles[i], 4, nType == 0 ? input.data() : output.data()), 0u);
        };
        for (std::size_t i = 0; i < 2; ++i) {
            handles[i] = sockets.AddConnected();
            sockets.Deliver(handles[i], "12345678");
            ASSERT_EQ(one.RegisterForIOCompletion(handles[i], handlers[i]), 0u);
            handlers[i]->onComplete = [&, i](std::uint32_t nType) {
                if (++ended[i] <= 2) start(i, nType);
            };
            start(i, 1);
            start(i, 0);
        }
        sockets.ClearCalls();
        sockets.FailNthCall(n, 104);
        while (one.HasPendingIO())
            EXPECT_EQ(one.DoPendingIO(5, Token()), 0u);
        EXPECT_EQ(started, (std::array<int, 2>{4, 4}));
        EXPECT_EQ(ended, started);
        EXPECT_GE(sockets.Calls().size(), std::min<std::size_t>(n, 10)) << "the failure took place";
    }
}

#ifndef NDEBUG
TEST_F(ZephIOTaskManager_SyncSilenceTest, DebugBuildsRefuseToBeReEntered) {
    Task task([&] { manager.DoPendingIO(0, Token()); });
    manager.ScheduleTask(&task);
    EXPECT_DEATH(manager.DoPendingIO(0, Token()), "DoPendingIO called from a completion or a task");
}
#endif

}  // namespace
}  // namespace Ombry::Tests
