#include "tests/Fakes/SSLIOFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::ElementsAre;

/// How long the pump goes on, and where it must stop.
class ZephSSLIORoundsTest : public SSLIOFixture {};

TEST_F(ZephSSLIORoundsTest, FullWriteBufferIsNotExtractedIntoWhenTheWriteBelowCannotStart) {
    TurnOn();
    engine.output = std::string(BufferLength + 1, 'a');
    lower.results = {3};
    EXPECT_EQ(Read(10), 3u);
    engine.calls.clear();
    lower.results = {3};
    EXPECT_EQ(Read(10), 3u);
    EXPECT_EQ(engine.Count("extract_ciphertext"), 0u);
}

TEST_F(ZephSSLIORoundsTest, BytesThatMovedLeadToAnotherRound) {
    TurnOn();
    engine.plaintext = "abc";
    Read(3);
    EXPECT_THAT(engine.calls,
                ElementsAre("extract_ciphertext 8096", "read_plaintext 3", "extract_ciphertext 8096"));
}

TEST_F(ZephSSLIORoundsTest, OutputThatComesByteByByteIsAllSent) {
    class Dribbler : public FakeSSLConnection {
    public:
        std::int32_t extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override {
            return FakeSSLConnection::extract_ciphertext(pBuffer, std::min(nBytes, 1));
        }
    } dribbler;
    manager.next = {&dribbler};
    TurnOn();
    dribbler.output = "abcdef";
    Read(10);
    EXPECT_THAT(lower.events, ElementsAre("write 6"));
}

TEST_F(ZephSSLIORoundsTest, OpenTransfersStayWhileTheCloseAlertIsNotSent) {
    TurnOn();
    engine.shuttingDown = true;
    engine.onShutdown = [this] { engine.output = "alert", engine.shutdownComplete = true; };
    engine.shutdownResults = {1};
    engine.writeAtMost = 0;
    EXPECT_EQ(Read(10), 0u);
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_THAT(lower.events, ElementsAre("write 5"));
    EXPECT_EQ(lower.CompleteWrite(), "alert");
    EXPECT_THAT(lower.events, ElementsAre("write 5", "read 10", "write 3"));
}

TEST_F(ZephSSLIORoundsTest, CloseSeenInARoundBehindAnIdleOneIsStillAnswered) {
    TurnOn();
    engine.blocked = true;
    engine.onReadPlaintext = [this] { engine.shuttingDown = engine.Count("read_plaintext") == 2; };
    engine.onShutdown = [this] {
        if (engine.Count("shutdown") == 1) engine.output = "alert";
    };
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(lower.events, ElementsAre("write 5"));
    EXPECT_EQ(lower.CompleteWrite(), "alert");
}

TEST_F(ZephSSLIORoundsTest, OutputOfAReadBehindAnIdleRoundIsSent) {
    TurnOn();
    engine.blocked = true;
    engine.onReadPlaintext = [this] {
        if (engine.Count("read_plaintext") == 2) engine.plaintext = "abc", engine.output = "update";
    };
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(lower.events, ElementsAre("write 6"));
}

TEST_F(ZephSSLIORoundsTest, ShutdownThatEndsBehindAnIdleRoundEndsTLSAtOnce) {
    TurnOn();
    engine.shutdownResults = {1, 1};
    engine.onShutdown = [this] { engine.shutdownComplete = engine.Count("shutdown") == 2; };
    EXPECT_EQ(ssl.StopSSL(true), 0u);
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
}

TEST_F(ZephSSLIORoundsTest, OutputThatWaitsForARunningWriteTakesNoFurtherRound) {
    TurnOn();
    engine.output = "head";
    engine.wants = true;
    Read(10);
    engine.output = "body";
    engine.calls.clear();
    Read(10);
    EXPECT_THAT(engine.calls, ElementsAre("read_plaintext 10"));
}

TEST_F(ZephSSLIORoundsTest, SessionThatFollowsAStopBehindAnIdleRoundBeginsAtOnce) {
    Register();
    engine.output = "last";
    ssl.StartSSL();
    ssl.StopSSL(true);
    ssl.StartSSL();
    engine.blocked = true;
    engine.onShutdown = [this] { engine.shutdownComplete = true; };
    second.output = "hello";
    lower.events.clear();
    lower.CompleteWrite();
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    EXPECT_THAT(lower.events, ElementsAre("write 5"));
}

TEST_F(ZephSSLIORoundsTest, ASingleByteBehindTheCloseIsKept) {
    TurnOn();
    engine.wants = true;
    Read(3);
    scheduler.RunTasks();
    SeeClose();
    engine.unprocessed = "x";
    lower.CompleteRead("alert");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 1"));
}

}  // namespace
}  // namespace Ombry::Tests
