#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSocketIO.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

class FakeManager : public ZephIOTaskManagerIf, public ZephUserTaskScheduleIf {
public:
    explicit FakeManager(Lines& events) : events(events) {}
    std::uint32_t RegisterForIOCompletion(Platform::SocketHandle h,
                                          ZephIOCompletionHandlerIf* pHandler) override {
        events.push_back("register " + std::to_string(h));
        registered = pHandler;
        return result;
    }
    std::uint32_t UnRegisterForIOCompletion(Platform::SocketHandle h) override {
        events.push_back("unregister " + std::to_string(h));
        return 1;
    }
    bool ReleaseHandle(Platform::SocketHandle) override { return true; }
    std::uint32_t StartIO(std::uint32_t nTaskType, Platform::SocketHandle h, std::uint32_t nBytes,
                          std::uint8_t* pBuffer) override {
        events.push_back("start " + std::to_string(nTaskType) + " on " + std::to_string(h) + " of " +
                         std::to_string(nBytes));
        buffer = pBuffer;
        return result;
    }
    void SetVerbose(bool) override {}
    std::uint32_t ScheduleTask(ZephTaskIf* pTask) override {
        events.push_back("schedule");
        task = pTask;
        return result;
    }

    std::uint32_t result = 0;
    ZephIOCompletionHandlerIf* registered = nullptr;
    std::uint8_t* buffer = nullptr;
    ZephTaskIf* task = nullptr;

private:
    Lines& events;
};

class FakeGate : public ZephTaskGateIf {
public:
    explicit FakeGate(Lines& events) : events(events) {}
    bool TryAcquire() override {
        events.push_back("acquire");
        return open;
    }
    void Release() override { events.push_back("release"); }
    bool open = true;

private:
    Lines& events;
};

class Stage : public ZephIOCompletionHandlerIf {
public:
    explicit Stage(Lines& events) : events(events) {}
    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        events.push_back("complete " + std::to_string(nTaskType) + " " + std::to_string(bSuccess) + " " +
                         std::to_string(nBytes));
        if (during) during();
    }
    void AbortTask(std::uint32_t nTaskType) override {
        events.push_back("abort " + std::to_string(nTaskType));
        if (during) during();
    }
    void OnDrained() override { events.push_back("drained"); }
    WriteTail TakeWriteTail() override { return tail; }
    WriteTail tail;
    std::function<void()> during;

private:
    Lines& events;
};

class ZephSocketIOTest : public ::testing::Test {
protected:
    void Bind(ZephTaskGateIf* pGate = nullptr) {
        ASSERT_EQ(socket.Initialize(7, &manager, &manager, pGate), 0u);
        ASSERT_EQ(socket.RegisterIOCompletionHandler(&stage), 0u);
        events.clear();
    }
    std::int64_t Now() { return Platform::WallSeconds(); }
    void PassSeconds(std::int64_t n) { clock.Advance(Duration(n * TicksPerSecond)); }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Lines events;
    FakeManager manager{events};
    FakeGate gate{events};
    Stage stage{events};
    ZephSocketIO socket;
    std::uint8_t bytes[4] = {};
};

TEST_F(ZephSocketIOTest, AnUnboundObjectAnswersNotInitialized) {
    EXPECT_EQ(socket.RegisterIOCompletionHandler(&stage), 7u);
    EXPECT_EQ(socket.StartRead(4, bytes), 7u);
    EXPECT_EQ(socket.StartWrite(4, bytes), 7u);
    EXPECT_EQ(socket.RequestDrainNotification(), 7u);
    socket.UnRegisterIOCompletionHandler();
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(socket.GetLastActivity(), 0);
}

TEST_F(ZephSocketIOTest, WhatGoesWithAWriteIsTheHandlersAnswer) {
    stage.tail = {3, true};
    EXPECT_EQ(socket.TakeWriteTail().nBytes, 0u);
    EXPECT_FALSE(socket.TakeWriteTail().bMoreFollows);
    Bind();
    EXPECT_EQ(socket.TakeWriteTail().nBytes, 3u);
    EXPECT_TRUE(socket.TakeWriteTail().bMoreFollows);
}

TEST_F(ZephSocketIOTest, InitializeRegistersItselfForTheSocket) {
    EXPECT_EQ(socket.Initialize(7, &manager, &manager, nullptr), 0u);
    EXPECT_THAT(events, ElementsAre("register 7"));
    EXPECT_EQ(manager.registered, &socket);
}

TEST_F(ZephSocketIOTest, InitializeHandsTheManagersResultThrough) {
    manager.result = 200;
    EXPECT_EQ(socket.Initialize(7, &manager, &manager, nullptr), 200u);
}

TEST_F(ZephSocketIOTest, InitializeAgainDropsTheOldSocketFirstAndTheHandlerWithIt) {
    Bind();
    EXPECT_EQ(socket.Initialize(8, &manager, &manager, nullptr), 0u);
    EXPECT_THAT(events, ElementsAre("unregister 7", "register 8"));
    EXPECT_EQ(socket.StartRead(4, bytes), 7u);
}

TEST_F(ZephSocketIOTest, StartingBeforeAHandlerIsRegisteredIsNotInitializedThoughBound) {
    ASSERT_EQ(socket.Initialize(7, &manager, &manager, nullptr), 0u);
    events.clear();
    EXPECT_EQ(socket.StartRead(4, bytes), 7u);
    EXPECT_EQ(socket.StartWrite(4, bytes), 7u);
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(socket.GetLastActivity(), 0);
}

TEST_F(ZephSocketIOTest, UnregisteringUnbindsOnceAndTheSecondTimeDoesNothing) {
    Bind();
    socket.UnRegisterIOCompletionHandler();
    socket.UnRegisterIOCompletionHandler();
    EXPECT_THAT(events, ElementsAre("unregister 7"));
    EXPECT_EQ(socket.RegisterIOCompletionHandler(&stage), 7u);
    EXPECT_EQ(socket.StartRead(4, bytes), 7u);
    EXPECT_EQ(socket.RequestDrainNotification(), 7u);
}

TEST_F(ZephSocketIOTest, TheDestructorUnbinds) {
    {
        ZephSocketIO temporary;
        temporary.Initialize(9, &manager, &manager, nullptr);
    }
    EXPECT_THAT(events, ElementsAre("register 9", "unregister 9"));
}

TEST_F(ZephSocketIOTest, NothingHereClosesTheSocket) {
    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::ISockets> replaced{sockets};
    const Platform::SocketHandle h = sockets.AddConnected();
    ZephIOTaskManager_Sync real{nullptr};
    {
        ZephSocketIO temporary;
        ASSERT_EQ(temporary.Initialize(h, &real, &real, nullptr), 0u);
        temporary.UnRegisterIOCompletionHandler();
        ASSERT_EQ(temporary.Initialize(h, &real, &real, nullptr), 0u);
    }
    EXPECT_TRUE(sockets.IsOpen(h));
    EXPECT_THAT(sockets.Calls(), IsEmpty());
}

TEST_F(ZephSocketIOTest, ReadsAndWritesAreForwardedWithTheirBuffers) {
    Bind();
    const std::uint8_t text[3] = {1, 2, 3};
    EXPECT_EQ(socket.StartRead(4, bytes), 0u);
    EXPECT_EQ(manager.buffer, bytes);
    EXPECT_EQ(socket.StartWrite(3, text), 0u);
    EXPECT_EQ(manager.buffer, text);
    EXPECT_THAT(events, ElementsAre("start 0 on 7 of 4", "start 1 on 7 of 3"));
    manager.result = 202;
    EXPECT_EQ(socket.StartRead(4, bytes), 202u);
    manager.result = 203;
    EXPECT_EQ(socket.StartWrite(4, bytes), 203u);
}

TEST_F(ZephSocketIOTest, EachStartAndEachCompletionNotesTheTime) {
    Bind();
    EXPECT_EQ(socket.GetLastActivity(), 0);
    socket.StartRead(4, bytes);
    EXPECT_EQ(socket.GetLastActivity(), Now());
    PassSeconds(5);
    socket.StartWrite(4, bytes);
    EXPECT_EQ(socket.GetLastActivity(), Now());
    PassSeconds(5);
    stage.during = [&] { PassSeconds(1); };
    socket.CompleteTask(0, true, 4);
    EXPECT_EQ(socket.GetLastActivity(), Now()) << "the time after the handler";
    socket.AbortTask(1);
    EXPECT_EQ(socket.GetLastActivity(), Now());
}

TEST_F(ZephSocketIOTest, CompletionsAndAbortsGoUpUnchangedAndAreCounted) {
    Bind();
    stage.during = [&] { EXPECT_EQ(socket.GetCallbacksInProgress(), 1); };
    socket.CompleteTask(0, true, 4);
    socket.CompleteTask(1, false, 0xFFFFFFFFu);
    socket.AbortTask(1);
    EXPECT_THAT(events, ElementsAre("complete 0 1 4", "complete 1 0 4294967295", "abort 1"));
    EXPECT_EQ(socket.GetCallbacksInProgress(), 0);
}

TEST_F(ZephSocketIOTest, ACallbackThatThrowsIsNoLongerCounted) {
    Bind();
    stage.during = [&] {
        PassSeconds(1);
        throw std::runtime_error("handler");
    };
    EXPECT_THROW(socket.CompleteTask(0, true, 4), std::runtime_error);
    EXPECT_EQ(socket.GetCallbacksInProgress(), 0);
    EXPECT_EQ(socket.GetLastActivity(), Now());
    EXPECT_THROW(socket.AbortTask(0), std::runtime_error);
    EXPECT_EQ(socket.GetCallbacksInProgress(), 0);
}

TEST_F(ZephSocketIOTest, AHandlerMayCallBackIntoTheObjectFromACompletion) {
    Bind();
    stage.during = [&] {
        stage.during = nullptr;
        EXPECT_EQ(socket.StartRead(4, bytes), 0u);
        socket.CompleteTask(1, true, 1);
        EXPECT_EQ(socket.GetCallbacksInProgress(), 1);
    };
    socket.CompleteTask(0, true, 4);
    EXPECT_EQ(socket.GetCallbacksInProgress(), 0);
    EXPECT_THAT(events, ElementsAre("complete 0 1 4", "start 0 on 7 of 4", "complete 1 1 1"));
}

TEST_F(ZephSocketIOTest, AHandlerMayUnbindTheObjectFromACompletion) {
    Bind();
    stage.during = [&] { socket.UnRegisterIOCompletionHandler(); };
    socket.CompleteTask(0, true, 4);
    EXPECT_EQ(socket.GetCallbacksInProgress(), 0);
    socket.CompleteTask(0, true, 4);
    socket.AbortTask(0);
    EXPECT_THAT(events, ElementsAre("complete 0 1 4", "unregister 7"));
}

TEST_F(ZephSocketIOTest, ADrainNotificationComesFromAScheduledTask) {
    Bind();
    EXPECT_EQ(socket.RequestDrainNotification(), 0u);
    EXPECT_THAT(events, ElementsAre("schedule"));
    EXPECT_EQ(manager.task, &socket);
    manager.task->DoTask();
    EXPECT_THAT(events, ElementsAre("schedule", "drained"));
    manager.result = 12;
    EXPECT_EQ(socket.RequestDrainNotification(), 12u);
}

TEST_F(ZephSocketIOTest, AGateIsTakenBeforeTheTaskIsScheduledAndReleasedAfterItRan) {
    Bind(&gate);
    EXPECT_EQ(socket.RequestDrainNotification(), 0u);
    manager.task->DoTask();
    EXPECT_THAT(events, ElementsAre("acquire", "schedule", "drained", "release"));
}

TEST_F(ZephSocketIOTest, AGateThatRefusesReadsAsSuccessAndNothingIsScheduled) {
    Bind(&gate);
    gate.open = false;
    EXPECT_EQ(socket.RequestDrainNotification(), 0u);
    EXPECT_THAT(events, ElementsAre("acquire"));
}

TEST_F(ZephSocketIOTest, ATaskThatRunsAfterTheObjectWasUnboundDoesNothing) {
    Bind(&gate);
    ASSERT_EQ(socket.RequestDrainNotification(), 0u);
    socket.UnRegisterIOCompletionHandler();
    events.clear();
    manager.task->DoTask();
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ZephSocketIOTest, OnDrainedFromBelowDoesNothing) {
    Bind();
    static_cast<ZephIOCompletionHandlerIf&>(socket).OnDrained();
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ZephSocketIOTest, AnExchangeRunsOverTheReactor) {
    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::ISockets> replaced{sockets};
    const Platform::SocketHandle h = sockets.AddConnected();
    sockets.Deliver(h, "ping");
    ZephIOTaskManager_Sync real{nullptr};
    ASSERT_EQ(socket.Initialize(h, &real, &real, nullptr), 0u);
    ASSERT_EQ(socket.RegisterIOCompletionHandler(&stage), 0u);
    events.clear();
    stage.during = [&] {
        stage.during = nullptr;
        EXPECT_EQ(socket.StartWrite(4, bytes), 0u);
        EXPECT_EQ(socket.RequestDrainNotification(), 0u);
    };
    ASSERT_EQ(socket.StartRead(4, bytes), 0u);
    EXPECT_EQ(real.DoPendingIO(5, Cancellation::Token()), 0u);
    EXPECT_THAT(events, ElementsAre("complete 0 1 4", "drained", "complete 1 1 4"));
    EXPECT_EQ(sockets.Sent(h), "ping");
    EXPECT_EQ(socket.GetCallbacksInProgress(), 0);
    socket.UnRegisterIOCompletionHandler();
}

}  // namespace
}  // namespace Ombry::Tests
