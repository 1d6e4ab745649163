#include "tests/Fakes/SSLIOFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::ElementsAre;
using testing::IsEmpty;

/// A read of the layer below that outlives TLS.
class ZephSSLIOLateReadTest : public SSLIOFixture {
protected:
    /// TLS is off, and the read that was started for the engine still runs.
    void StopWithAReadBelow() {
        TurnOn();
        engine.wants = true;
        ASSERT_EQ(Read(4), 0u);
        engine.shutdownComplete = true;
        engine.unprocessed = "half a record";
        ASSERT_EQ(ssl.StopSSL(false), 0u);
        scheduler.RunTasks();
        ASSERT_THAT(Take(listener.events), ElementsAre("stopped"));
        ASSERT_THAT(Take(lower.events), ElementsAre("read 8096"));
    }
};

TEST_F(ZephSSLIOLateReadTest, BytesGoToTheOpenRead) {
    StopWithAReadBelow();
    lower.CompleteRead("clear");
    EXPECT_THAT(Take(listener.events), ElementsAre("read ok 4"));
    EXPECT_EQ(ReadText(5), "clea.");
    Read(10);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 1"));
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOLateReadTest, BytesAheadOfARequestFailTheOpenReadOnce) {
    StopWithAReadBelow();
    ssl.ExpectSilenceUntilSent();
    lower.CompleteRead("clear");
    EXPECT_THAT(Take(listener.events), ElementsAre("read failed 0"));
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

TEST_F(ZephSSLIOLateReadTest, UserReadWaitsForItInsteadOfStartingAnother) {
    TurnOn();
    engine.wants = true;
    engine.output = "x";
    ssl.StartSSL();
    Write("w");
    scheduler.RunTasks();
    lower.CompleteWrite();
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    listener.events.clear();
    lower.events.clear();
    EXPECT_EQ(Read(10), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, IsEmpty());
    lower.CompleteRead("clear");
    EXPECT_THAT(listener.events, ElementsAre("read ok 5"));
    EXPECT_EQ(ReadText(6), "clear.");
}

TEST_F(ZephSSLIOLateReadTest, BytesThatTheEngineNeverTookStayWhereTheyAreWhileItRuns) {
    TurnOn();
    engine.wants = true;
    Read(4);
    scheduler.RunTasks();
    engine.acceptAtMost = 0;
    lower.CompleteRead("left");
    ASSERT_EQ(lower.nRead, BufferLength - 4);
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    scheduler.RunTasks();
    lower.events.clear();
    listener.events.clear();
    EXPECT_EQ(Read(10), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, IsEmpty()) << "the layer below writes behind them";
    EXPECT_EQ(ReadText(1), ".");
    lower.CompleteRead("over");
    EXPECT_THAT(listener.events, ElementsAre("read ok 8"));
    EXPECT_EQ(ReadText(9), "leftover.");
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOLateReadTest, FailureAndCloseAreTheUsersOwn) {
    StopWithAReadBelow();
    lower.FailRead();
    EXPECT_THAT(Take(listener.events), ElementsAre("read failed 0"));
    Read(10);
    EXPECT_THAT(lower.events, ElementsAre("read 10"));
    lower.CompleteRead("");
    EXPECT_THAT(Take(listener.events), ElementsAre("read ok 0"));
    ssl.StartSSL();
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, ElementsAre("fatal")) << "nothing is open any more";
}

TEST_F(ZephSSLIOLateReadTest, FailureAndCloseWithoutAReaderAreToldToNobody) {
    for (const bool bFails : {true, false}) {
        TurnOn();
        engine.wants = true;
        Write("w");
        scheduler.RunTasks();
        engine.shutdownComplete = true;
        ssl.StopSSL(false);
        listener.events.clear();
        bFails ? lower.FailRead() : static_cast<void>(lower.CompleteRead(""));
        EXPECT_THAT(listener.events, IsEmpty());
        ssl.Terminate();
        Initialize(nullptr);
    }
}

TEST_F(ZephSSLIOLateReadTest, BytesWithoutAReaderAreKeptForTheNextRead) {
    TurnOn();
    engine.wants = true;
    Write("w");
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    listener.events.clear();
    lower.CompleteRead("clear");
    EXPECT_THAT(listener.events, IsEmpty());
    lower.events.clear();
    Read(10);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 5"));
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOLateReadTest, CompletionOfMoreThanWasAskedForIsCut) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 0;
    Read(20000);
    lower.CompleteRead("left");
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    scheduler.RunTasks();
    listener.events.clear();
    ssl.CompleteTask(TaskTypeRead, true, 0xFFFFFFFF);
    EXPECT_THAT(listener.events, ElementsAre("read ok 8096"));
}

TEST_F(ZephSSLIOLateReadTest, TheBufferItFillsIsNeitherGrownNorWritten) {
    StopWithAReadBelow();
    // What the engine held was the beginning of a record whose rest is still under way.
    EXPECT_EQ(engine.Count("extract_unprocessed_ciphertext"), 0u);
}

TEST_F(ZephSSLIOLateReadTest, RestartInjectsItsBytesIntoTheNewEngine) {
    StopWithAReadBelow();
    ssl.StartSSL();
    lower.CompleteRead("hello");
    EXPECT_EQ(second.injected, "hello");
}

}  // namespace
}  // namespace Ombry::Tests
