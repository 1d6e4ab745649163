#include "tests/Fakes/SSLIOFixture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::ElementsAre;
using testing::IsEmpty;

class ZephSSLIONotifyTest : public SSLIOFixture {
protected:
    Events Trace() {
        Events messages = logger->Messages(0);
        logger->Clear();
        return messages;
    }
    /// A read and a write wait.
    void OpenBothForAHandlerThatUnregistersInTheFirst() {
        TurnOn();
        engine.wants = true;
        engine.writeAtMost = 0;
        Read(3);
        Write("abc");
        scheduler.RunTasks();
        listener.onComplete = [this] { ssl.UnRegisterIOCompletionHandler(); };
    }
};

// The task

TEST_F(ZephSSLIONotifyTest, TaskDispatchesOneReadAndOneWriteInThisOrder) {
    TurnOn();
    engine.plaintext = "abcdef";
    Read(3);
    Write("out");
    ssl.SetVerbose(true);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3", "write ok 3"));
    for (const std::string transfer : {"read", "write"}) {
        EXPECT_EQ(logger->FunctionOf("Dispatching " + transfer + " completion notification.  sessionid = 7"),
                  "OmbryZephCore::ZephSSLIO::DoPendingNotifications");
    }
    EXPECT_THAT(
        Trace(),
        ElementsAre("entering.  sessionid = 7", "Dispatching read completion notification.  sessionid = 7",
                    "Dispatching write completion notification.  sessionid = 7", "exiting.  sessionid = 7"));
    EXPECT_EQ(scheduler.scheduled, 1);
}

TEST_F(ZephSSLIONotifyTest, TaskWithNothingToTellOnlyLogs) {
    TurnOn();
    Read(3);
    ssl.SetVerbose(true);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_THAT(Trace(), ElementsAre("entering.  sessionid = 7", "exiting.  sessionid = 7"));
}

TEST_F(ZephSSLIONotifyTest, ReadStartedByTheHandlerCompletesInALaterTask) {
    TurnOn();
    engine.plaintext = "abcdef";
    Read(3);
    Events inside;
    listener.onComplete = [&] {
        EXPECT_EQ(Read(3), 0u);  // no lock is held here
        inside = listener.events;
    };
    ssl.DoTask();
    EXPECT_THAT(inside, ElementsAre("read ok 3"));
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3", "read ok 3"));
}

TEST_F(ZephSSLIONotifyTest, NoLockIsHeldWhileAHandlerIsCalled) {
    TurnOn();
    engine.plaintext = "abc";
    engine.wants = true;
    Read(3);
    const auto callFromAnotherThread = [&] {
        std::thread([&] { ssl.SetVerbose(false), ssl.OnDrained(); }).join();
    };
    listener.onComplete = callFromAnotherThread;
    scheduler.RunTasks();
    Read(3);
    listener.onComplete = callFromAnotherThread;
    lower.FailRead();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3", "read failed 0"));
}

TEST_F(ZephSSLIONotifyTest, HandlerThatUnregistersInItsReadHearsNoWrite) {
    OpenBothForAHandlerThatUnregistersInTheFirst();
    engine.plaintext = "abc";
    engine.writeAtMost = 3;
    lower.CompleteRead("ciphertext");
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
}

TEST_F(ZephSSLIONotifyTest, HandlerThatUnregistersInItsReadFailureHearsNoWriteFailure) {
    OpenBothForAHandlerThatUnregistersInTheFirst();
    lower.FailRead();
    EXPECT_THAT(listener.events, ElementsAre("read failed 0"));
}

TEST_F(ZephSSLIONotifyTest, FatalErrorWithoutAHandlerTellsNobodyOfTheTransfers) {
    ssl.StartSSL();
    Read(3);
    Write("abc");
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, IsEmpty());
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

// SchedulePendingNotifications

TEST_F(ZephSSLIONotifyTest, PendingTaskIsNotScheduledTwice) {
    TurnOn();
    Read(3);
    ssl.SetVerbose(true);
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_EQ(scheduler.scheduled, 1);
    EXPECT_THAT(Trace(), ElementsAre("task already pending -- not doing anything.  sessionid = 7"));
    scheduler.RunTasks();
    Read(3);
    EXPECT_EQ(scheduler.scheduled, 2);
}

TEST_F(ZephSSLIONotifyTest, FailureToScheduleIsLoggedReturnedAndTriedAgain) {
    TurnOn();
    engine.plaintext = "abc";
    scheduler.result = 3;
    ssl.SetVerbose(true);
    EXPECT_EQ(Read(3), 3u);
    EXPECT_THAT(Trace(), ElementsAre("ScheduleTask failed with error 3.  sessionid = 7"));
    scheduler.result = 0;
    EXPECT_EQ(Write("abc"), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3", "write ok 3"));
}

TEST_F(ZephSSLIONotifyTest, FailureToScheduleAWriteIsReturned) {
    TurnOn();
    scheduler.result = 3;
    EXPECT_EQ(Write("abc"), 3u);
}

TEST_F(ZephSSLIONotifyTest, NothingIsScheduledDuringTermination) {
    TurnOn();
    ssl.SetVerbose(true);
    std::uint32_t nResult = 99;
    lower.onUnregister = [&] {
        Trace();
        nResult = ssl.RequestDrainNotification();
    };
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_EQ(nResult, 0u);
    EXPECT_EQ(scheduler.scheduled, 0);
    EXPECT_THAT(Trace(), ElementsAre("termination is signaled -- not doing anything.  sessionid = 7"));
    EXPECT_EQ(ssl.RequestDrainNotification(), 0u);
    EXPECT_EQ(scheduler.scheduled, 1);
}

TEST_F(ZephSSLIONotifyTest, PendingTaskIsSeenBeforeTheTermination) {
    TurnOn();
    ASSERT_EQ(ssl.RequestDrainNotification(), 0u);
    ssl.SetVerbose(true);
    Events seen;
    scheduler.onCancel = [&] {
        Trace();
        EXPECT_EQ(ssl.RequestDrainNotification(), 0u);
        seen = Trace();
    };
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_THAT(seen, ElementsAre("task already pending -- not doing anything.  sessionid = 7"));
}

// The gate

class ZephSSLIOGateTest : public ZephSSLIONotifyTest {
protected:
    void SetUp() override { Initialize(&gate); }

    CountingGate gate;
};

TEST_F(ZephSSLIOGateTest, GateIsAcquiredForATaskAndReleasedAfterIt) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    EXPECT_EQ(gate.acquired, 1);
    int nReleasedInside = -1;
    listener.onComplete = [&] { nReleasedInside = gate.released; };
    scheduler.RunTasks();
    EXPECT_EQ(nReleasedInside, 0);
    EXPECT_EQ(gate.released, 1);
}

TEST_F(ZephSSLIOGateTest, HandlerThatThrowsEndsTheTaskSoThatNobodyWaitsForIt) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    listener.onComplete = [] { throw std::runtime_error("handler"); };
    EXPECT_THROW(scheduler.RunTasks(), std::runtime_error);
    EXPECT_EQ(gate.released, 1);
    ssl.DoTask();  // would wait for the task that threw
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
}

TEST_F(ZephSSLIOGateTest, ClosedGateRefusesAndLeavesNothingPending) {
    TurnOn();
    gate.open = false;
    EXPECT_EQ(Read(3), eRC_TaskRefused);
    EXPECT_EQ(Write("abc"), eRC_TaskRefused);
    EXPECT_EQ(ssl.RequestDrainNotification(), eRC_TaskRefused);
    EXPECT_EQ(scheduler.scheduled, 0);
    gate.open = true;
    EXPECT_EQ(Read(3), 0u);
    EXPECT_EQ(scheduler.scheduled, 1);
}

TEST_F(ZephSSLIOGateTest, GateIsNotAskedWhileATaskIsPending) {
    TurnOn();
    Read(3);
    gate.open = false;
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_EQ(gate.acquired, 1);
}

TEST_F(ZephSSLIOGateTest, GateIsGivenBackWhenTheTaskNeverRuns) {
    TurnOn();
    scheduler.result = 3;
    Read(3);
    EXPECT_EQ(gate.released, 1);
    scheduler.result = 0;
    Read(3);
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_EQ(gate.acquired, 2);
    EXPECT_EQ(gate.released, 2);
}

TEST_F(ZephSSLIOGateTest, GateIsGivenBackOnceWhenTheTaskStartsWhileItIsCancelled) {
    TurnOn();
    Read(3);
    scheduler.onCancel = [&] { scheduler.RunTasks(); };
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_EQ(gate.acquired, 1);
    EXPECT_EQ(gate.released, 1);
}

TEST_F(ZephSSLIOGateTest, StageMayEndAsSoonAsItsTaskHasEnded) {
    auto stage = std::make_unique<ZephSSLIO>(logger);
    stage->SetVerbose(true);
    ASSERT_EQ(stage->Initialize(&manager, &lower, &scheduler, 9, &listener, &scheduler, &gate), 0u);
    ASSERT_EQ(stage->RequestDrainNotification(), 0u);
    logger->Clear();
    // What a thread does that waits for the task.
    gate.onRelease = [&] {
        stage->UnRegisterIOCompletionHandler();
        stage.reset();
        logger->Clear();
    };
    scheduler.RunTasks();
    EXPECT_EQ(stage, nullptr);
    EXPECT_THAT(Trace(), ElementsAre("exiting.  sessionid = 9"));
}

// Drain notifications

TEST_F(ZephSSLIONotifyTest, DrainRequestGoesBelowAndItsAnswerUp) {
    Register();
    EXPECT_EQ(ssl.RequestDrainNotification(), 0u);
    EXPECT_THAT(lower.events, IsEmpty());
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, ElementsAre("drain"));
    EXPECT_THAT(listener.events, IsEmpty());
    ssl.OnDrained();
    EXPECT_THAT(listener.events, IsEmpty());
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("drained"));
}

TEST_F(ZephSSLIONotifyTest, DrainIsAskedBelowOnceForSeveralRequests) {
    Register();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, ElementsAre("drain"));
    ssl.OnDrained();
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("drained"));
}

TEST_F(ZephSSLIONotifyTest, AnAnsweredDrainRequestIsNotAskedBelowAgain) {
    TurnOn();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    ssl.OnDrained();
    scheduler.RunTasks();
    Write("out");
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, ElementsAre("drain"));
    EXPECT_THAT(listener.events, ElementsAre("drained", "write ok 3"));
}

TEST_F(ZephSSLIONotifyTest, EachAnsweredDrainRequestCanBeFollowedByAnother) {
    Register();
    for (int n = 0; n < 2; ++n) {
        ssl.RequestDrainNotification();
        scheduler.RunTasks();
        ssl.OnDrained();
        scheduler.RunTasks();
    }
    EXPECT_THAT(lower.events, ElementsAre("drain", "drain"));
    // An answer also ends the request below; otherwise the second one would wait for an answer to the first.
    EXPECT_THAT(listener.events, ElementsAre("drained", "drained"));
}

TEST_F(ZephSSLIONotifyTest, DrainWaitsForTheReadAndTheWriteBelow) {
    for (const bool bRead : {true, false}) {
        lower = ScriptedLowerLayer();
        listener.events.clear();
        Initialize(nullptr);
        TurnOn();
        engine.wants = bRead;
        engine.output = bRead ? "" : "x";
        Write("w");
        scheduler.RunTasks();
        lower.events.clear();
        listener.events.clear();
        ssl.RequestDrainNotification();
        scheduler.RunTasks();
        EXPECT_THAT(lower.events, IsEmpty());
        engine.wants = false;
        bRead ? static_cast<void>(lower.CompleteRead("c")) : static_cast<void>(lower.CompleteWrite());
        EXPECT_THAT(lower.events, ElementsAre("drain"));
        // Work that began in between is waited for again.
        engine.output = "y";
        Write("w");
        scheduler.RunTasks();
        listener.events.clear();
        ssl.OnDrained();
        scheduler.RunTasks();
        EXPECT_THAT(listener.events, IsEmpty());
        lower.CompleteWrite();
        EXPECT_THAT(listener.events, ElementsAre("drained"));
        ssl.Terminate();
    }
}

TEST_F(ZephSSLIONotifyTest, DrainIsToldAfterTheCompletions) {
    TurnOn();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    engine.plaintext = "abc";
    Read(3);
    Write("out");
    ssl.OnDrained();
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3", "write ok 3", "drained"));
}

TEST_F(ZephSSLIONotifyTest, AnswerFromBelowThatWasNotAskedForWaitsForARequest) {
    Register();
    ssl.OnDrained();
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, IsEmpty());
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("drained"));
    EXPECT_THAT(lower.events, IsEmpty());
}

// UnRegisterIOCompletionHandler

TEST_F(ZephSSLIONotifyTest, UnregisterCancelsThePendingTaskAndLeavesTheLayerBelow) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    ssl.SetVerbose(true);
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_EQ(scheduler.cancelled, 1);
    EXPECT_THAT(scheduler.tasks, IsEmpty());
    EXPECT_THAT(lower.events, ElementsAre("unregister"));
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_THAT(Trace(),
                ElementsAre("sessionid = 7", "Waiting for any outstanding tasks to complete.  sessionid = 7",
                            "Unregistering with next layer.  sessionid = 7"));
}

TEST_F(ZephSSLIONotifyTest, UnregisterWithNothingPendingCancelsNothing) {
    Register();
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_EQ(scheduler.cancelled, 0);
}

TEST_F(ZephSSLIONotifyTest, UnregisterForgetsTheHandler) {
    TurnOn();
    Read(3);
    ssl.UnRegisterIOCompletionHandler();
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, IsEmpty());
}

TEST_F(ZephSSLIONotifyTest, UnregisterForgetsTheHandlerAfterTheLayerBelowWasLeft) {
    Register();
    Read(3);
    lower.onUnregister = [&] { lower.CompleteRead("abc"); };
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
}

TEST_F(ZephSSLIONotifyTest, UnregisterWithoutANextLayerSaysSo) {
    ssl.Terminate();
    ssl.SetVerbose(true);
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_THAT(Trace(),
                ElementsAre("sessionid = 0", "Waiting for any outstanding tasks to complete.  sessionid = 0",
                            "There is no next layer -- not unregistering with it.  sessionid = 0"));
}

/// Holds a thread inside a completion until it is let go.
class Turnstile {
public:
    void Stop() {
        std::unique_lock lock(mutex);
        stopped = true;
        changed.notify_all();
        changed.wait(lock, [&] { return open; });
    }
    void AwaitStopped() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return stopped; });
    }
    void Open() {
        std::lock_guard lock(mutex);
        open = true;
        changed.notify_all();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool stopped = false;
    bool open = false;
};

TEST_F(ZephSSLIONotifyTest, UnregisterWaitsForTheRunningTask) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    Turnstile turnstile;
    listener.onComplete = [&] { turnstile.Stop(); };
    std::thread ioThread([&] { scheduler.RunTasks(); });
    turnstile.AwaitStopped();
    std::atomic<bool> bLetGo = false;
    std::atomic<bool> bUnregistered = false;
    std::atomic<bool> bTooEarly = false;
    lower.onUnregister = [&] { bTooEarly = !bLetGo, bUnregistered = true; };
    ssl.SetVerbose(true);
    std::thread closer([&] { ssl.UnRegisterIOCompletionHandler(); });
    while (!logger->Has(0, "Waiting for any outstanding tasks to complete.  sessionid = 7"))
        std::this_thread::yield();
    for (int n = 0; n < 1000 && !bUnregistered; ++n)
        std::this_thread::yield();  // room for a wait that is none
    bLetGo = true;
    turnstile.Open();
    closer.join();
    ioThread.join();
    EXPECT_TRUE(bUnregistered);
    EXPECT_FALSE(bTooEarly);
}

TEST_F(ZephSSLIONotifyTest, UnregisterWithoutACancellerWaitsForThePendingTask) {
    ASSERT_EQ(ssl.Initialize(&manager, &lower, &scheduler, 7, &listener, nullptr, nullptr), 0u);
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    std::atomic<bool> bUnregistered = false;
    lower.onUnregister = [&] { bUnregistered = true; };
    ssl.SetVerbose(true);
    std::thread closer([&] { ssl.UnRegisterIOCompletionHandler(); });
    while (!logger->Has(0, "Waiting for any outstanding tasks to complete.  sessionid = 7"))
        std::this_thread::yield();
    for (int n = 0; n < 1000 && !bUnregistered; ++n)
        std::this_thread::yield();  // room for a wait that is none
    EXPECT_FALSE(bUnregistered);
    scheduler.RunTasks();
    closer.join();
    EXPECT_TRUE(bUnregistered);
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
}

TEST_F(ZephSSLIONotifyTest, UnregisterWaitsForATaskThatStartedBeforeItCouldBeCancelled) {
    class LateCanceller : public ZephUserTaskCancelIf {
    public:
        std::function<void()> onCancel;
        void CancelTask(ZephTaskIf*) override { onCancel(); }
    } canceller;
    ASSERT_EQ(ssl.Initialize(&manager, &lower, &scheduler, 7, &listener, &canceller, nullptr), 0u);
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    Turnstile turnstile;
    listener.onComplete = [&] { turnstile.Stop(); };
    std::thread ioThread;
    canceller.onCancel = [&] {
        ioThread = std::thread([&] { scheduler.RunTasks(); });
        turnstile.AwaitStopped();
    };
    std::atomic<bool> bUnregistered = false;
    lower.onUnregister = [&] { bUnregistered = true; };
    std::thread closer([&] { ssl.UnRegisterIOCompletionHandler(); });
    turnstile.AwaitStopped();
    for (int n = 0; n < 1000 && !bUnregistered; ++n)
        std::this_thread::yield();  // room for a wait that is none
    EXPECT_FALSE(bUnregistered);
    turnstile.Open();
    closer.join();
    ioThread.join();
    EXPECT_TRUE(bUnregistered);
}

TEST_F(ZephSSLIONotifyTest, SecondTaskWaitsForTheFirstOnAnotherThread) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    Turnstile turnstile;
    listener.onComplete = [&] { turnstile.Stop(); };
    std::thread first([&] { ssl.DoTask(); });
    turnstile.AwaitStopped();
    Write("abc");
    std::atomic<bool> bStarted = false;
    std::thread other([&] {
        bStarted = true;
        ssl.DoTask();
    });
    while (!bStarted)
        std::this_thread::yield();
    for (int n = 0; n < 1000; ++n)
        std::this_thread::yield();  // room for a wait that is none
    EXPECT_EQ(listener.events.size(), 1u);
    turnstile.Open();
    first.join();
    other.join();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3", "write ok 3"));
}

TEST_F(ZephSSLIONotifyTest, DrainRequestWithoutALayerBelowIsAskedOfNobody) {
    ZephSSLIO alone(logger);
    ASSERT_EQ(alone.Initialize(&manager, nullptr, &scheduler, 7, &listener, &scheduler, nullptr), 0u);
    EXPECT_EQ(alone.RequestDrainNotification(), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIONotifyTest, DrainThatArrivesWhenNobodyListensIsToldToNobody) {
    Register();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    ASSERT_THAT(lower.events, ElementsAre("drain"));
    ssl.UnRegisterIOCompletionHandler();
    ssl.OnDrained();
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, IsEmpty());
}

}  // namespace
}  // namespace Ombry::Tests
