#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "tests/OmbryZephCore/ReactorFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <set>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using Cancellation::Token;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using ZephIOTaskManager_SyncTest = ReactorFixture;

// --- What is pending ---

TEST_F(ZephIOTaskManager_SyncTest, NothingPendingReturnsAtOnceWithoutAnyCall) {
    Connect(a);
    EXPECT_FALSE(manager.HasPendingIO());
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncTest, OnlyATaskPendingRunsItWithoutAWait) {
    Task task = Note("task");
    EXPECT_EQ(manager.ScheduleTask(&task), 0u);
    EXPECT_TRUE(manager.HasPendingIO());
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("task"));
    EXPECT_THAT(sockets.Calls(), IsEmpty());
    EXPECT_FALSE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncTest, ReadsAndWritesAndTasksAreEachPending) {
    const SocketHandle h = Connect(a);
    ASSERT_EQ(Read(h), 0u);
    EXPECT_TRUE(manager.HasPendingIO());
    manager.UnRegisterForIOCompletion(h);
    EXPECT_FALSE(manager.HasPendingIO());
    const SocketHandle other = Connect(b);
    ASSERT_EQ(Write(other), 0u);
    EXPECT_TRUE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncTest, StartIORecordsAndDoesNoIO) {
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "data");
    Read(h);
    Write(h);
    EXPECT_THAT(sockets.Calls(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

// --- Transfers ---

TEST_F(ZephIOTaskManager_SyncTest, AReadTakesOneWaitAndOneReceive) {
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "data");
    Read(h, 16);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({100}, {}, {100}, 1000)", "Receive(100, 16)"));
    EXPECT_THAT(events, ElementsAre("a read 0 ok 4"));
    EXPECT_EQ(std::string(input.begin(), input.begin() + 4), "data");
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncTest, AWriteTakesOneWaitAndOneSend) {
    const SocketHandle h = Connect(a);
    Write(h, 5);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({}, {100}, {100}, 1000)", "Send(100, 5)"));
    EXPECT_THAT(events, ElementsAre("a write 1 ok 5"));
    EXPECT_EQ(sockets.Sent(h), "hello");
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncTest, AWriteThatAnotherFollowsAtOnceIsSentWithThatPromise) {
    const SocketHandle h = Connect(a);
    a.hasMore = true;
    a.onComplete = [&](std::uint32_t) {
        if (a.hasMore) Write(h, 4);
        a.hasMore = false;
    };
    Write(h, 5);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({}, {100}, {100}, 1000)", "Send(100, 5, more)",
                                             "Select({}, {100}, {100}, 1000)", "Send(100, 4)"));
    EXPECT_THAT(events, ElementsAre("a write 1 ok 5", "a write 1 ok 4"));
}

TEST_F(ZephIOTaskManager_SyncTest, WhatLiesBehindAWriteByNowGoesWithIt) {
    const SocketHandle h = Connect(a);
    a.tailBytes = 2;
    Write(h, 3);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({}, {100}, {100}, 1000)", "Send(100, 5)"));
    EXPECT_THAT(events, ElementsAre("a write 1 ok 5"));
    EXPECT_EQ(sockets.Sent(h), "hello");
}

TEST_F(ZephIOTaskManager_SyncTest, AnyTaskTypeButZeroIsAWrite) {
    for (std::uint32_t nType : {1u, 2u, 7u, 0xFFFFFFFFu}) {
        events.clear();
        const SocketHandle h = Connect(a);
        EXPECT_EQ(manager.StartIO(nType, h, 5, output.data()), 0u);
        EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
        EXPECT_THAT(events, ElementsAre("a write 1 ok 5")) << nType;
    }
}

TEST_F(ZephIOTaskManager_SyncTest, AShortWriteIsReportedAsItIs) {
    const SocketHandle h = Connect(a);
    sockets.SetMostPerCall(h, 2, 100);
    Write(h, 5);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a write 1 ok 2"));
    EXPECT_EQ(sockets.CallsOf("Send"), 1u);
    EXPECT_FALSE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncTest, OneReceiveForEachReadinessEvenIfMoreIsThere) {
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "0123456789");
    Read(h, 4);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 4"));
    EXPECT_EQ(sockets.CallsOf("Receive"), 1u);
}

TEST_F(ZephIOTaskManager_SyncTest, ThePeersCloseIsASuccessOfZeroBytes) {
    const SocketHandle h = Connect(a);
    sockets.CloseByPeer(h);
    Read(h);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 0"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncTest, AFailedReceiveIsLoggedAndCompletesWithFailure) {
    const SocketHandle h = Connect(a);
    sockets.Break(h, 104);
    Read(h);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed"));
    EXPECT_EQ(a.lastBytes, 0xFFFFFFFFu);
    EXPECT_THAT(logger->Messages(3), ElementsAre("recv failed. socket = 100, Last error = 104"));
    EXPECT_EQ(logger->Entries().size(), 1u);
}

TEST_F(ZephIOTaskManager_SyncTest, AFailedSendIsLoggedAndCompletesWithFailure) {
    const SocketHandle h = Connect(a);
    sockets.Break(h, 32);
    Write(h);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a write 1 failed"));
    EXPECT_THAT(logger->Messages(3), ElementsAre("send failed. socket = 100, Last error = 32"));
    EXPECT_EQ(logger->Entries().size(), 1u);
}

TEST_F(ZephIOTaskManager_SyncTest, AHandleInTheExceptionSetFailsBothTransfersWithoutTouchingTheSocket) {
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "data");
    sockets.SetExceptional(h);
    Read(h);
    Write(h);
    a.onComplete = [&](std::uint32_t) { EXPECT_EQ(a.lastBytes, 0u); };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "a write 1 failed"));
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({100}, {100}, {100}, 1000)"));
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("ExceptFD is set. socket = 100", "ExceptFD is set. socket = 100"));
    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].function, "OmbryZephCore::ZephIOTaskManager_Sync::ProcessReadCompletions");
    EXPECT_EQ(entries[1].function, "OmbryZephCore::ZephIOTaskManager_Sync::ProcessWriteCompletions");
    EXPECT_LT(entries[0].line, entries[1].line);
    EXPECT_EQ(entries[0].file, SourcePath("OmbryZephCore/ZephIOTaskManager_Sync.cpp"));
}

TEST_F(ZephIOTaskManager_SyncTest, WouldBlockLeavesTheTransferPendingAndIsNoCompletion) {
    const SocketHandle h = Connect(a);
    sockets.SetSendRoom(h, 0);
    Read(h, 16);
    Write(h, 5);
    sockets.NextReady({h}, {h});
    sockets.OnIdle([&](std::int64_t) {
        EXPECT_THAT(events, IsEmpty());
        sockets.Deliver(h, "late");
        sockets.SetSendRoom(h, 100);
    });
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 4", "a write 1 ok 5"));
    EXPECT_THAT(sockets.Calls(),
                ElementsAre("Select({100}, {100}, {100}, 1000)", "Receive(100, 16)", "Send(100, 5)",
                            "Select({100}, {100}, {100}, 1000)", "Receive(100, 16)", "Send(100, 5)"));
    EXPECT_EQ(sockets.Sent(h), "hello");
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncTest, AReadThatIsReadyBesideAWriteThatIsNotMakesOneReceiveAndNoSend) {
    const SocketHandle h = Connect(a);
    sockets.SetSendRoom(h, 0);
    sockets.Deliver(h, "data");
    Read(h, 16);
    Write(h, 5);
    a.onComplete = [&](std::uint32_t) { sockets.SetSendRoom(h, 100); };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({100}, {100}, {100}, 1000)", "Receive(100, 16)",
                                             "Select({}, {100}, {100}, 1000)", "Send(100, 5)"));
    EXPECT_THAT(events, ElementsAre("a read 0 ok 4", "a write 1 ok 5"));
}

TEST_F(ZephIOTaskManager_SyncTest, AWriteThatIsReadyBesideAReadThatIsNotMakesOneSendAndNoReceive) {
    const SocketHandle h = Connect(a);
    Read(h, 16);
    Write(h, 5);
    a.onComplete = [&](std::uint32_t nTaskType) {
        if (nTaskType == 1) sockets.Deliver(h, "data");
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({100}, {100}, {100}, 1000)", "Send(100, 5)",
                                             "Select({100}, {}, {100}, 1000)", "Receive(100, 16)"));
    EXPECT_THAT(events, ElementsAre("a write 1 ok 5", "a read 0 ok 4"));
}

TEST_F(ZephIOTaskManager_SyncTest, APositiveCountWithNoHandleInASetCompletesNothingAndWaitsAgain) {
    const SocketHandle h = Connect(a);
    Read(h);
    sockets.NextReady({999}, {});
    sockets.NextReady({}, {h});  // the other direction is not what was asked for
    sockets.OnIdle([&](std::int64_t) { sockets.Deliver(h, "x"); });
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_EQ(sockets.CallsOf("Select"), 3u);
    EXPECT_EQ(sockets.CallsOf("Receive"), 1u);
    EXPECT_EQ(sockets.CallsOf("Send"), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1"));
}

TEST_F(ZephIOTaskManager_SyncTest, OnlyPendingDirectionsAreAskedFor) {
    const SocketHandle reader = Connect(a);
    const SocketHandle idle = Connect(b);
    const SocketHandle writer = Connect(c);
    sockets.Deliver(reader, "r");
    sockets.Deliver(idle, "nobody asked");
    Read(reader);
    Write(writer);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_EQ(sockets.Calls().front(), "Select({100}, {102}, {100 102}, 1000)");
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1", "c write 1 ok 5"));
}

TEST_F(ZephIOTaskManager_SyncTest, TheSetsOfARoundHoldNothingOfTheRoundBefore) {
    const SocketHandle gone = Connect(a);
    const SocketHandle stays = Connect(b);
    sockets.Deliver(gone, "urgent");
    sockets.SetExceptional(gone);
    Read(gone);
    Write(gone);
    Write(stays);
    a.onComplete = [&](std::uint32_t) {
        manager.UnRegisterForIOCompletion(gone);
        Read(stays);
        sockets.Deliver(stays, "more");
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(), ElementsAre("Select({100}, {100 101}, {100 101}, 1000)", "Send(101, 5)",
                                             "Select({101}, {}, {101}, 1000)", "Receive(101, 16)"));
}

TEST_F(ZephIOTaskManager_SyncTest, HandlesBeyond1023AreServed) {
    sockets.SetNextHandle(5000);
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "x");
    Read(h);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1"));
}

// --- Order ---

TEST_F(ZephIOTaskManager_SyncTest, ReadsOfAllHandlesComeBeforeWritesOfAllInAscendingOrder) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    const SocketHandle h3 = Connect(c);
    for (SocketHandle h : {h3, h1, h2}) {
        sockets.Deliver(h, "x");
        Write(h);
        Read(h);
    }
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1", "b read 0 ok 1", "c read 0 ok 1", "a write 1 ok 5",
                                    "b write 1 ok 5", "c write 1 ok 5"));
    EXPECT_EQ(sockets.CallsOf("Select"), 1u);
}

TEST_F(ZephIOTaskManager_SyncTest, TasksRunBeforeTheWaitAndBetweenRounds) {
    const SocketHandle h = Connect(a);
    Task first = Note("first");
    Task second = Note("second");
    sockets.Deliver(h, "x");
    Read(h);
    manager.ScheduleTask(&first);
    a.onComplete = [&](std::uint32_t) { manager.ScheduleTask(&second); };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("first", "a read 0 ok 1", "second"));
    EXPECT_EQ(sockets.CallsOf("Select"), 1u);
}

TEST_F(ZephIOTaskManager_SyncTest, AHandlerMayStartTheNextTransferOnItsHandle) {
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "0123456789");
    Read(h, 4);
    a.onComplete = [&](std::uint32_t) {
        if (a.completions < 3) Read(h, 4);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 4", "a read 0 ok 4", "a read 0 ok 2"));
    EXPECT_EQ(sockets.CallsOf("Select"), 3u);
}

TEST_F(ZephIOTaskManager_SyncTest, ATransferStartedByAHandlerWaitsForTheNextRound) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    sockets.Deliver(h1, "x");
    sockets.Deliver(h2, "y");
    Read(h1);
    a.onComplete = [&](std::uint32_t nType) {
        if (nType != 0) return;
        Read(h2);
        Write(h1);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(),
                ElementsAre("Select({100}, {}, {100}, 1000)", "Receive(100, 16)",
                            "Select({101}, {100}, {100 101}, 1000)", "Receive(101, 16)", "Send(100, 5)"));
}

TEST_F(ZephIOTaskManager_SyncTest, AWriteStartedOnAnExceptionalHandleWaitsForTheNextRound) {
    const SocketHandle h = Connect(a);
    Read(h);
    sockets.NextReady({}, {}, {h});
    a.onComplete = [&](std::uint32_t nType) {
        if (nType == 0) Write(h);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 failed", "a write 1 ok 5"));
    EXPECT_EQ(sockets.CallsOf("Select"), 2u);
}

TEST_F(ZephIOTaskManager_SyncTest, AReadStartedOnAnExceptionalHandleWaitsForTheNextRound) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    sockets.Deliver(h1, "x");
    sockets.Deliver(h2, "yz");
    Read(h1);
    Write(h2);
    sockets.NextReady({h1}, {}, {h2});
    a.onComplete = [&](std::uint32_t) { Read(h2); };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1", "b write 1 failed", "b read 0 ok 2"));
}

// --- Handlers that change the table ---

TEST_F(ZephIOTaskManager_SyncTest, AHandlerMayUnregisterItselfAndItsWriteIsNeverDelivered) {
    const SocketHandle h = Connect(a);
    sockets.Deliver(h, "x");
    Read(h);
    Write(h);
    a.onComplete = [&](std::uint32_t) { EXPECT_EQ(manager.UnRegisterForIOCompletion(h), 1u); };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1"));
    EXPECT_EQ(sockets.CallsOf("Send"), 0u);
    EXPECT_FALSE(manager.HasPendingIO());
}

TEST_F(ZephIOTaskManager_SyncTest, AHandlerMayUnregisterHandlesBeforeAndBehindItsOwn) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    const SocketHandle h3 = Connect(c);
    sockets.SetSendRoom(h1, 0);
    sockets.Deliver(h2, "x");
    sockets.Deliver(h3, "x");
    Write(h1);
    Read(h2);
    Read(h3);
    b.onComplete = [&](std::uint32_t) {
        manager.UnRegisterForIOCompletion(h1);
        manager.UnRegisterForIOCompletion(h2);
        manager.UnRegisterForIOCompletion(h3);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("b read 0 ok 1"));
}

TEST_F(ZephIOTaskManager_SyncTest, AWriteHandlerMayUnregisterHandlesToo) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    Write(h1);
    Write(h2);
    a.onComplete = [&](std::uint32_t) {
        manager.UnRegisterForIOCompletion(h1);
        manager.UnRegisterForIOCompletion(h2);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a write 1 ok 5"));
}

TEST_F(ZephIOTaskManager_SyncTest, AHandleRegisteredAnewDoesNotInheritTheReadinessOfTheOld) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    sockets.Deliver(h1, "x");
    sockets.Deliver(h2, "old");
    Read(h1);
    Read(h2);
    a.onComplete = [&](std::uint32_t nType) {
        if (nType != 0) return;
        manager.UnRegisterForIOCompletion(h2);
        sockets.AddConnected(h2);
        sockets.Deliver(h2, "new");
        manager.RegisterForIOCompletion(h2, &c);
        Read(h2);
        Write(h2);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(sockets.Calls(),
                ElementsAre("Select({100 101}, {}, {100 101}, 1000)", "Receive(100, 16)",
                            "Select({101}, {101}, {101}, 1000)", "Receive(101, 16)", "Send(101, 5)"));
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1", "c read 0 ok 3", "c write 1 ok 5"));
}

TEST_F(ZephIOTaskManager_SyncTest, AHandleRegisteredAnewIsNotFailedByTheExceptionOfTheOld) {
    const SocketHandle h1 = Connect(a);
    const SocketHandle h2 = Connect(b);
    sockets.Deliver(h1, "x");
    Read(h1);
    Read(h2);
    sockets.NextReady({h1}, {}, {h2});
    a.onComplete = [&](std::uint32_t) {
        manager.UnRegisterForIOCompletion(h2);
        manager.RegisterForIOCompletion(h2, &c);
        sockets.Deliver(h2, "new");
        Read(h2);
    };
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1", "c read 0 ok 3"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

// --- Registration ---

TEST_F(ZephIOTaskManager_SyncTest, ASecondRegistrationOfAHandleIsRefusedAndLogged) {
    const SocketHandle h = Connect(a);
    EXPECT_EQ(manager.RegisterForIOCompletion(h, &b), 200u);
    EXPECT_THAT(
        logger->Messages(4),
        ElementsAre("returning eRC_IO_HandleAlreadyRegistered.  h = 100, pHandler = " + PointerText(&b)));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries().front().function,
              "OmbryZephCore::ZephIOTaskManager_Sync::RegisterForIOCompletion");
    sockets.Deliver(h, "x");
    Read(h);
    manager.DoPendingIO(5, Token());
    EXPECT_THAT(events, ElementsAre("a read 0 ok 1"));
}

TEST_F(ZephIOTaskManager_SyncTest, The65thHandleIsRefusedAndLogged) {
    for (SocketHandle h = 1; h <= 64; ++h)
        ASSERT_EQ(manager.RegisterForIOCompletion(h, &a), 0u) << h;
    EXPECT_EQ(manager.RegisterForIOCompletion(65, &b), 1u);
    EXPECT_EQ(manager.RegisterForIOCompletion(64, &b), 200u) << "a known handle is told before a full table";
    EXPECT_THAT(
        logger->Messages(4),
        ElementsAre("There are already FD_SETSIZE handles registered.  Returning eRC_Fail.  "
                    "h = 65, pHandler = " +
                        PointerText(&b),
                    "returning eRC_IO_HandleAlreadyRegistered.  h = 64, pHandler = " + PointerText(&b)));
    EXPECT_EQ(manager.UnRegisterForIOCompletion(7), 1u);
    EXPECT_EQ(manager.RegisterForIOCompletion(65, &b), 0u);
}

TEST_F(ZephIOTaskManager_SyncTest, All64HandlesAreServedInOneRound) {
    for (int i = 0; i < 64; ++i) {
        const SocketHandle h = Connect(a);
        sockets.Deliver(h, "x");
        Read(h);
        Write(h);
    }
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_EQ(a.completions, 128);
    EXPECT_EQ(sockets.CallsOf("Select"), 1u);
}

TEST_F(ZephIOTaskManager_SyncTest, UnregisteringDeliversNothingAndCountsWhatItRemoved) {
    const SocketHandle h = Connect(a);
    Read(h);
    Write(h);
    EXPECT_EQ(manager.UnRegisterForIOCompletion(h), 1u);
    EXPECT_EQ(manager.UnRegisterForIOCompletion(h), 0u);
    EXPECT_EQ(manager.DoPendingIO(5, Token()), 0u);
    EXPECT_THAT(events, IsEmpty());
    EXPECT_THAT(sockets.Calls(), IsEmpty());
}

TEST_F(ZephIOTaskManager_SyncTest, ReleaseHandleRemovesTheHandleAndIsAlwaysTrue) {
    const SocketHandle h = Connect(a);
    EXPECT_TRUE(manager.ReleaseHandle(h));
    EXPECT_EQ(Read(h), 201u);
    EXPECT_TRUE(manager.ReleaseHandle(h));
}

TEST_F(ZephIOTaskManager_SyncTest, AHandleRegisteredAgainStartsIdle) {
    const SocketHandle h = Connect(a);
    Read(h);
    Write(h);
    manager.UnRegisterForIOCompletion(h);
    ASSERT_EQ(manager.RegisterForIOCompletion(h, &b), 0u);
    EXPECT_FALSE(manager.HasPendingIO());
    EXPECT_EQ(Read(h), 0u);
    EXPECT_EQ(Write(h), 0u);
}

// --- StartIO refusals ---

TEST_F(ZephIOTaskManager_SyncTest, EachRefusalOfATransferBearsALineOfItsOwn) {
    const SocketHandle h = Connect(a);
    manager.StartIO(0, 77, 10, input.data());
    Read(h);
    Read(h);
    Write(h);
    Write(h);
    std::set<int> lines;
    for (const auto& entry : logger->Entries()) {
        EXPECT_EQ(entry.function, "OmbryZephCore::ZephIOTaskManager_Sync::StartIO");
        EXPECT_EQ(entry.file, SourcePath("OmbryZephCore/ZephIOTaskManager_Sync.cpp"));
        lines.insert(entry.line);
    }
    EXPECT_EQ(lines.size(), 3u);
}

TEST_F(ZephIOTaskManager_SyncTest, ATransferOnAnUnknownHandleIsRefusedAndLogged) {
    EXPECT_EQ(manager.StartIO(0, 77, 10, input.data()), 201u);
    EXPECT_EQ(manager.StartIO(9, 78, 11, output.data()), 201u);
    EXPECT_THAT(
        logger->Messages(3),
        ElementsAre("returning eRC_IO_HandleNotRegistered. nTaskType = 0, h = 77, nBytes = 10, pBuffer = " +
                        PointerText(input.data()),
                    "returning eRC_IO_HandleNotRegistered. nTaskType = 9, h = 78, nBytes = 11, pBuffer = " +
                        PointerText(output.data())));
    EXPECT_EQ(logger->Entries().size(), 2u);
    EXPECT_EQ(logger->Entries().front().function, "OmbryZephCore::ZephIOTaskManager_Sync::StartIO");
}

TEST_F(ZephIOTaskManager_SyncTest, ASecondReadIsRefusedWhileAWriteIsAccepted) {
    const SocketHandle h = Connect(a);
    EXPECT_EQ(Read(h, 3), 0u);
    EXPECT_EQ(Read(h, 16), 202u);
    EXPECT_EQ(Write(h), 0u);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("returning eRC_IO_ReadAlreadyInProgress. nTaskType = 0, h = 100, nBytes = 16, "
                            "pBuffer = " +
                            PointerText(input.data())));
    EXPECT_EQ(logger->Entries().size(), 1u);
    sockets.Deliver(h, "0123456789");
    manager.DoPendingIO(5, Token());
    EXPECT_THAT(events, ElementsAre("a read 0 ok 3", "a write 1 ok 5")) << "the first read stands";
}

TEST_F(ZephIOTaskManager_SyncTest, ASecondWriteIsRefusedWhileAReadIsAccepted) {
    const SocketHandle h = Connect(a);
    EXPECT_EQ(Write(h, 2), 0u);
    EXPECT_EQ(Write(h, 5), 203u);
    EXPECT_EQ(Read(h), 0u);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("returning eRC_IO_WriteAlreadyInProgress. nTaskType = 1, h = 100, nBytes = 5, "
                            "pBuffer = " +
                            PointerText(output.data())));
    sockets.Deliver(h, "x");
    manager.DoPendingIO(5, Token());
    EXPECT_EQ(sockets.Sent(h), "he") << "the first write stands";
}

}  // namespace
}  // namespace Ombry::Tests
