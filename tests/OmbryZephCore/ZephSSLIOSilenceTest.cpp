#include "tests/Fakes/SSLIOFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

/// What the peer says before the first byte of a request was handed to the layer below.
class ZephSSLIOSilenceTest : public SSLIOFixture {
protected:
    /// A read is open, a request was taken by the engine, and its ciphertext waits below.
    void BeginRequest() {
        TurnOn();
        engine.wants = true;
        engine.onWritePlaintext = [this] { engine.output += "request"; };
        ExpectAndWrite();
    }
    void ExpectAndWrite() {
        ssl.ExpectSilenceUntilSent();
        ASSERT_EQ(Read(100), 0u);
        ASSERT_EQ(Write("r"), 0u);
        scheduler.RunTasks();
        ASSERT_THAT(Take(listener.events), ElementsAre("write ok 1"));
        Take(lower.events);
    }
    void PeerSays(const std::string& plaintext) {
        engine.plaintext = plaintext;
        lower.CompleteRead("ciphertext");
        scheduler.RunTasks();
    }
    /// Of a record that comes before the request was sent; the request goes on to its answer.
    void ExpectPartOfARecordLeftAlone() {
        engine.unread = true;
        PeerSays("");
        EXPECT_THAT(listener.events, IsEmpty());
        lower.CompleteWrite();
        PeerSays("answer");
        EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
    }
    /// The read failed, and neither it nor the request will be heard of below again.
    void ExpectRefused() {
        EXPECT_THAT(Take(listener.events), ElementsAre("read failed 0"));
        EXPECT_THAT(Take(lower.events), ElementsAre("unregister"));
    }
};

TEST_F(ZephSSLIOSilenceTest, PlaintextBeforeTheRequestWasSentFailsTheReadAndStopsTheRequest) {
    BeginRequest();
    PeerSays("answer");
    ExpectRefused();
}

TEST_F(ZephSSLIOSilenceTest, RefusalIsTraced) {
    BeginRequest();
    ssl.SetVerbose(true);
    PeerSays("answer");
    EXPECT_THAT(logger->Messages(0),
                Contains("bytes came ahead of the request -- reporting a fatal error.  sessionid = 7"));
}

TEST_F(ZephSSLIOSilenceTest, PlaintextBehindTheFirstByteIsTheAnswer) {
    BeginRequest();
    lower.CompleteWrite(1);
    PeerSays("answer");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, BytesOfTheSessionAheadOfTheRequestDoNotCount) {
    TurnOn();
    engine.wants = true;
    engine.output = "finished";
    engine.onWritePlaintext = [this] { engine.output += "request"; };
    ExpectAndWrite();
    lower.CompleteWrite(3);
    EXPECT_EQ(lower.CompleteWrite(5), "ished");
    ASSERT_NE(lower.pWrite, nullptr) << "the request";
    Take(lower.events);
    PeerSays("answer");
    ExpectRefused();
}

TEST_F(ZephSSLIOSilenceTest, FirstByteBehindBytesOfTheSessionThatLeftInPiecesEndsTheSilence) {
    TurnOn();
    engine.wants = true;
    engine.output = "finished";
    engine.onWritePlaintext = [this] { engine.output += "request"; };
    ExpectAndWrite();
    lower.CompleteWrite(3);
    lower.CompleteWrite(5);
    lower.CompleteWrite(1);
    PeerSays("answer");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, OneSendOfBothIsPastTheFirstByte) {
    TurnOn();
    engine.wants = true;
    engine.output = "finished";
    engine.onWritePlaintext = [this] { engine.output += "request"; };
    ssl.ExpectSilenceUntilSent();
    Write("r");  // both are taken in one call, and leave in one write
    Read(100);
    scheduler.RunTasks();
    Take(listener.events);
    EXPECT_EQ(lower.CompleteWrite(), "finishedrequest");
    PeerSays("answer");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, PlaintextWhileTheEngineTakesNothingFailsTheRead) {
    TurnOn();
    engine.wants = true;
    engine.writeAtMost = 0;  // a handshake
    ssl.ExpectSilenceUntilSent();
    Read(100);
    Write("r");
    scheduler.RunTasks();
    Take(lower.events);
    engine.plaintext = "answer";
    lower.CompleteRead("ciphertext");
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "write failed 0"));
    EXPECT_THAT(lower.events, ElementsAre("unregister"));
}

TEST_F(ZephSSLIOSilenceTest, PlaintextThatLayInTheEngineFailsTheNextReadAtOnce) {
    BeginRequest();
    lower.CompleteWrite();
    PeerSays("answer");
    engine.plaintext = "surplus";
    EXPECT_TRUE(ssl.HasUnread());
    Take(lower.events);
    ssl.ExpectSilenceUntilSent();
    EXPECT_EQ(Read(100), eRC_Fail);
    EXPECT_THAT(lower.events, ElementsAre("unregister"));
}

TEST_F(ZephSSLIOSilenceTest, WhatIsNoPlaintextLetsTheRequestGo) {
    BeginRequest();
    PeerSays("");
    EXPECT_THAT(listener.events, IsEmpty());
    lower.CompleteWrite();
    PeerSays("answer");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, BytesOfTheHandshakeThatAreSentDoNotEndIt) {
    TurnOn();
    engine.wants = true;
    engine.output = "hello";
    engine.writeAtMost = 0;
    ssl.ExpectSilenceUntilSent();
    Read(100);
    Write("r");
    scheduler.RunTasks();
    ASSERT_EQ(lower.CompleteWrite(), "hello");
    engine.plaintext = "answer";
    lower.CompleteRead("ciphertext");
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "write failed 0"));
}

TEST_F(ZephSSLIOSilenceTest, PartOfARecordOnAConnectionThatCarriedARequestFailsTheRead) {
    BeginRequest();
    lower.CompleteWrite();
    PeerSays("answer");
    ASSERT_THAT(Take(listener.events), ElementsAre("read ok 6"));
    ExpectAndWrite();
    engine.unread = true;
    PeerSays("");
    ExpectRefused();
}

TEST_F(ZephSSLIOSilenceTest, PartOfARecordBehindAHandshakeIsLeftAlone) {
    BeginRequest();
    ExpectPartOfARecordLeftAlone();
}

TEST_F(ZephSSLIOSilenceTest, PartOfARecordBehindTheHandshakeOfTheNextConnectionIsLeftAlone) {
    BeginRequest();
    lower.CompleteWrite();
    ssl.Terminate();
    scheduler.tasks.clear();
    lower.pRead = nullptr;
    Initialize(nullptr);
    BeginRequest();
    ExpectPartOfARecordLeftAlone();
}

TEST_F(ZephSSLIOSilenceTest, PartOfARecordBehindTheFirstByteIsThatOfTheAnswer) {
    BeginRequest();
    lower.CompleteWrite();
    PeerSays("answer");
    Take(listener.events);
    ExpectAndWrite();
    lower.CompleteWrite(1);
    engine.unread = true;
    PeerSays("");
    PeerSays("answer");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, WithTLSOffBytesBeforeTheRequestWasSentFailTheReadAndStopTheRequest) {
    Register();
    ssl.ExpectSilenceUntilSent();
    Read(100);
    Write("request");
    Take(lower.events);
    lower.CompleteRead("answer");
    ExpectRefused();
}

TEST_F(ZephSSLIOSilenceTest, WithTLSOffBytesBehindTheFirstByteAreTheAnswer) {
    Register();
    ssl.ExpectSilenceUntilSent();
    Read(100);
    Write("request");
    lower.CompleteWrite(1);
    lower.CompleteRead("answer");
    EXPECT_THAT(listener.events, ElementsAre("write ok 1", "read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, RequestThatTLSLeftOpenEndsItInClearText) {
    TurnOn();
    engine.writeAtMost = 0;
    ssl.ExpectSilenceUntilSent();
    Write("request");
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    scheduler.RunTasks();
    lower.CompleteWrite(1);
    Read(100);
    Take(listener.events);
    lower.CompleteRead("answer");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

TEST_F(ZephSSLIOSilenceTest, WithTLSOffACloseIsOne) {
    Register();
    ssl.ExpectSilenceUntilSent();
    Read(100);
    lower.CompleteRead("");
    EXPECT_THAT(listener.events, ElementsAre("read ok 0"));
}

TEST_F(ZephSSLIOSilenceTest, BytesBehindACloseOfTLSAreNotTheAnswerToALaterRequest) {
    TurnOn();
    engine.shutdownComplete = true;
    engine.unprocessed = "surplus";
    ssl.StopSSL(false);
    EXPECT_TRUE(ssl.HasUnread());
    ssl.ExpectSilenceUntilSent();
    EXPECT_EQ(Read(100), eRC_IO_ConnectionFailed);
    EXPECT_THAT(lower.events, ElementsAre("unregister"));
}

TEST_F(ZephSSLIOSilenceTest, PartOfARecordWhileTLSStopsIsLeftToTheClose) {
    BeginRequest();
    lower.CompleteWrite();
    PeerSays("answer");
    ASSERT_EQ(ssl.StopSSL(true), 0u);
    ssl.ExpectSilenceUntilSent();
    engine.unread = true;
    Take(lower.events);
    PeerSays("");
    EXPECT_THAT(lower.events, Not(Contains("unregister")));
}

TEST_F(ZephSSLIOSilenceTest, WithoutAnEngineThereIsNobodyToAskForUnreadBytes) {
    BeginRequest();
    lower.CompleteWrite();
    PeerSays("answer");
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    manager.next.clear();
    ASSERT_EQ(ssl.StartSSL(), eRC_Fail);
    Take(lower.events);
    ssl.ExpectSilenceUntilSent();
    EXPECT_EQ(Read(100), 0u);
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOSilenceTest, TerminateEndsTheSilence) {
    BeginRequest();
    ssl.Terminate();
    scheduler.tasks.clear();
    manager.next.clear();
    ASSERT_EQ(ssl.Initialize(&manager, &lower, &scheduler, 7, &listener, &scheduler, nullptr), 0u);
    Register();
    lower.pRead = nullptr;
    Read(100);
    lower.CompleteRead("banner");
    EXPECT_THAT(listener.events, ElementsAre("read ok 6"));
}

}  // namespace
}  // namespace Ombry::Tests
