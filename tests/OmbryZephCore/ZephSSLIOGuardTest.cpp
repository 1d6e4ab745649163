#include "tests/Fakes/SSLIOFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::ElementsAre;
using testing::IsEmpty;

/// The guard is on, as for every connection whose parameters ask for TLS. That the same situations end in
/// clear text with the guard off is what the tests of the pump show.
class ZephSSLIOGuardTest : public SSLIOFixture {
protected:
    void SetUp() override {
        ssl.SetClearTextGuard(true);
        Initialize(nullptr);
    }

    /// TLS was on and is off.
    void Close() {
        TurnOn();
        engine.shutdownComplete = true;
        ASSERT_EQ(ssl.StopSSL(false), 0u);
        ASSERT_THAT(Take(listener.events), ElementsAre("stopped"));
    }
};

TEST_F(ZephSSLIOGuardTest, BeforeTLSWasOnBytesPassThrough) {
    Register();
    EXPECT_EQ(Read(5), 0u);
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_THAT(lower.events, ElementsAre("read 5", "write 3"));
    lower.CompleteRead("12345");
    EXPECT_THAT(listener.events, ElementsAre("read ok 5"));
}

TEST_F(ZephSSLIOGuardTest, WriteAfterTLSIsRefused) {
    Close();
    EXPECT_EQ(Write("secret"), eRC_IO_ConnectionFailed);
    scheduler.RunTasks();
    EXPECT_THAT(lower.events, IsEmpty());
    EXPECT_THAT(listener.events, IsEmpty());
}

TEST_F(ZephSSLIOGuardTest, BytesOfAReadThatOutlivesTLSAreDroppedAndNoUnaskedAnswer) {
    TurnOn();
    engine.wants = true;
    Write("w");
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    ASSERT_EQ(ssl.StopSSL(false), 0u);
    ASSERT_NE(lower.pRead, nullptr);
    ssl.ExpectSilenceUntilSent();
    Take(listener.events);
    Take(lower.events);
    lower.CompleteRead("clear");
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_THAT(lower.events, IsEmpty());
    EXPECT_FALSE(ssl.HasUnread());
}

TEST_F(ZephSSLIOGuardTest, ReadAfterTLSCompletesWithNothingThroughATask) {
    Close();
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(listener.events, IsEmpty());
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOGuardTest, OpenReadCompletesWithNothingThroughATask) {
    TurnOn();
    SeeClose();
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(Take(listener.events), ElementsAre("stopped"));
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOGuardTest, OpenReadCompletesWithNothingWhenTheUserStopsTLS) {
    TurnOn();
    Read(10);
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    EXPECT_THAT(Take(listener.events), ElementsAre("stopped"));
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
}

TEST_F(ZephSSLIOGuardTest, OpenWriteFailsWhenTheUserStopsTLS) {
    TurnOn();
    engine.writeAtMost = 0;
    Write("secret");
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    EXPECT_THAT(Take(listener.events), ElementsAre("stopped"));
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("write failed 0"));
}

TEST_F(ZephSSLIOGuardTest, ReadAfterTLSCompletesAlthoughAReadBelowOutlivesIt) {
    TurnOn();
    engine.wants = true;
    Read(10);
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    scheduler.RunTasks();
    listener.events.clear();
    ASSERT_NE(lower.pRead, nullptr);
    EXPECT_EQ(Read(10), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
}

TEST_F(ZephSSLIOGuardTest, BytesBehindTheCloseAreDropped) {
    TurnOn();
    engine.wants = true;
    Read(10);
    scheduler.RunTasks();
    SeeClose();
    engine.unprocessed = "injected by a stranger";
    lower.CompleteRead("alert");
    EXPECT_THAT(Take(listener.events), ElementsAre("stopped", "read ok 0"));
    EXPECT_EQ(ReadText(1), ".");
    Read(10);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
    EXPECT_EQ(ReadText(1), ".");
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_EQ(second.injected, "") << "nor do they reach the next session";
}

TEST_F(ZephSSLIOGuardTest, WriteDuringWhichTheCloseIsSeenIsRefusedAndNotToldAgain) {
    TurnOn();
    engine.writeAtMost = 0;
    SeeClose();
    EXPECT_EQ(Write("secret"), eRC_IO_ConnectionFailed);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOGuardTest, WriteDuringWhichTheCloseIsSeenStillEndsTheOpenRead) {
    TurnOn();
    engine.writeAtMost = 0;
    Read(10);
    scheduler.RunTasks();
    SeeClose();
    EXPECT_EQ(Write("secret"), eRC_IO_ConnectionFailed);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 0"));
}

TEST_F(ZephSSLIOGuardTest, OpenWriteFailsWhenTheCloseArrives) {
    TurnOn();
    engine.writeAtMost = 0;
    engine.wants = true;
    Read(10);
    Write("secret");
    scheduler.RunTasks();
    SeeClose();
    lower.CompleteRead("alert");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 0", "write failed 0"));
    EXPECT_THAT(lower.events, ElementsAre("read 8096"));
}

TEST_F(ZephSSLIOGuardTest, WriteThatTheEngineHadBegunReportsWhatItTook) {
    TurnOn();
    engine.writeAtMost = 2;
    Read(10);
    scheduler.RunTasks();
    SeeClose();
    engine.shuttingDown = false;
    bool bTaken = false;
    engine.onReadPlaintext = [&] {
        if (std::exchange(bTaken, true)) engine.shuttingDown = true;
    };
    EXPECT_EQ(Write("abc"), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 0", "write ok 2"));
}

TEST_F(ZephSSLIOGuardTest, ReadBelowThatOutlivesTLSIsDropped) {
    TurnOn();
    engine.wants = true;
    Read(10);
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    scheduler.RunTasks();
    ASSERT_THAT(Take(listener.events), ElementsAre("stopped", "read ok 0"));
    lower.CompleteRead("injected by a stranger");
    EXPECT_THAT(listener.events, IsEmpty());
    Read(10);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
}

TEST_F(ZephSSLIOGuardTest, BytesOfAReadBelowThatOutlivesTLSReachNoReadAndNoLaterSession) {
    TurnOn();
    engine.wants = true;
    Read(10);
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    scheduler.RunTasks();
    listener.events.clear();
    Read(10);
    lower.CompleteRead("injected by a stranger");
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
    EXPECT_EQ(ReadText(1), ".");
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_EQ(second.injected, "");
}

TEST_F(ZephSSLIOGuardTest, RestartDuringAStopNeverPassesThroughClearText) {
    TurnOn();
    engine.wants = true;
    ssl.StopSSL(true);
    ssl.StartSSL();
    Read(10);
    Write("secret");
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    engine.unprocessed = "server hello";
    lower.CompleteRead("alert");
    EXPECT_EQ(second.injected, "server hello");
    EXPECT_EQ(second.written, "secret");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "write ok 6"));
}

TEST_F(ZephSSLIOGuardTest, StartAfterTheCloseMakesANewSession) {
    Close();
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_EQ(Write("secret"), 0u);
    EXPECT_EQ(second.written, "secret");
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOGuardTest, SurvivesTerminateAndForgetsThatTLSWasOn) {
    Close();
    ssl.Terminate();
    Initialize(nullptr);
    Register();
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_THAT(lower.events, ElementsAre("write 3"));
    lower.CompleteWrite();
    engine.calls.clear();
    ssl.StartSSL();
    ssl.StopSSL(false);
    EXPECT_EQ(Write("secret"), eRC_IO_ConnectionFailed);
}

TEST_F(ZephSSLIOGuardTest, SwitchedOffItLetsClearTextThroughAgain) {
    Close();
    ssl.SetClearTextGuard(false);
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_THAT(lower.events, ElementsAre("write 3"));
}

}  // namespace
}  // namespace Ombry::Tests
