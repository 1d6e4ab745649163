#include "tests/Fakes/SSLIOFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::ElementsAre;
using testing::IsEmpty;

/// What one life of a stage leaves behind must not reach into the next.
class ZephSSLIOTerminateTest : public SSLIOFixture {
protected:
    void StartAnew() {
        ssl.Terminate();
        lower.pRead = nullptr;
        lower.pWrite = nullptr;
        scheduler.tasks.clear();
        manager.next = {&second};
        manager.asked = 0;
        ASSERT_EQ(ssl.Initialize(&manager, &lower, &scheduler, 8, &listener, &scheduler, nullptr), 0u);
        listener.events.clear();
        lower.events.clear();
    }
};

TEST_F(ZephSSLIOTerminateTest, OpenTransfersAreForgotten) {
    TurnOn();
    engine.writeAtMost = 0;
    Read(10);
    Write("abc");
    StartAnew();
    TurnOn();
    second.failing = "inject_ciphertext";
    ssl.AbortTask(0);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

TEST_F(ZephSSLIOTerminateTest, TransfersBelowAreForgotten) {
    TurnOn();
    engine.wants = true;
    engine.output = "abc";
    Read(10);
    ASSERT_THAT(lower.events, ElementsAre("write 3", "read 8096"));
    StartAnew();
    second.wants = true;
    second.output = "defg";
    TurnOn();
    Read(10);
    EXPECT_EQ(lower.nWrite, 4u);
    EXPECT_NE(lower.pWrite, nullptr);
    EXPECT_NE(lower.pRead, nullptr);
}

TEST_F(ZephSSLIOTerminateTest, HandlerIsForgotten) {
    Register();
    StartAnew();
    second.output = "hello";
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTerminateTest, WaitForThePeersCloseIsForgotten) {
    TurnOn();
    ssl.StopSSL(true);
    EXPECT_EQ(engine.waits, std::vector<bool>{true});
    StartAnew();
    TurnOn();
    second.shuttingDown = true;
    Read(10);
    EXPECT_FALSE(second.waits.empty());
    EXPECT_FALSE(second.waits.front());
}

TEST_F(ZephSSLIOTerminateTest, DrainRequestIsForgotten) {
    Register();
    ssl.RequestDrainNotification();
    StartAnew();
    Register();
    ssl.DoTask();
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTerminateTest, DrainThatWasAskedBelowIsAskedAgain) {
    Register();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    ASSERT_THAT(lower.events, ElementsAre("drain"));
    StartAnew();
    Register();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, ElementsAre("drain"));
}

TEST_F(ZephSSLIOTerminateTest, AnswerToADrainIsForgotten) {
    Register();
    ssl.OnDrained();
    StartAnew();
    Register();
    ssl.RequestDrainNotification();
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, ElementsAre("drain"));
    EXPECT_THAT(listener.events, IsEmpty());
}

TEST_F(ZephSSLIOTerminateTest, PendingTaskIsForgotten) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    StartAnew();
    TurnOn();
    second.plaintext = "def";
    Read(3);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
}

TEST_F(ZephSSLIOTerminateTest, NeighboursAreForgotten) {
    CountingGate gate;
    Initialize(&gate);
    ssl.Terminate();
    EXPECT_EQ(ssl.StartSSL(), eRC_Fail);
    ssl.DoTask();
    EXPECT_EQ(manager.asked, 0);
    EXPECT_EQ(gate.released, 0);
    EXPECT_THAT(listener.events, IsEmpty());
}

}  // namespace
}  // namespace Ombry::Tests
