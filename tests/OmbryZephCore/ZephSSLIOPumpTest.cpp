#include "tests/Fakes/SSLIOFixture.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class ZephSSLIOPumpTest : public SSLIOFixture {
protected:
    /// A read that is open and whose task has run.
    void OpenRead(std::uint32_t nBytes) {
        ASSERT_EQ(Read(nBytes), 0u);
        scheduler.RunTasks();
        engine.calls.clear();
    }

    void OpenWrite(const std::string& bytes) {
        ASSERT_EQ(Write(bytes), 0u);
        scheduler.RunTasks();
        engine.calls.clear();
    }
};

// Engine failures

struct FailureCase {
    const char* pOperation;
    const char* pText;
};

class ZephSSLIOEngineFailureTest : public SSLIOFixture, public testing::WithParamInterface<FailureCase> {
protected:
    /// Brings every operation of the engine within reach of the next pump.
    void Prepare() {
        TurnOn();
        engine.wants = true;
        engine.writeAtMost = 0;
        Read(10);
        Write("abc");
        scheduler.RunTasks();
        if (std::string(GetParam().pOperation) == "shutdown") engine.shuttingDown = true;
        engine.failing = GetParam().pOperation;
        ssl.SetVerbose(true);
        logger->Clear();
    }
};

TEST_P(ZephSSLIOEngineFailureTest, InACompletionIsToldToTheOpenTransfersOnce) {
    Prepare();
    lower.CompleteRead("cipher");
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "write failed 0"));
    EXPECT_THAT(
        logger->Messages(0),
        ElementsAre("read completion -- 6 bytes transferred.  sessionid = 7", GetParam().pText,
                    "sessionid = 7", "Dispatching read fail notification to the next layer.  sessionid = 7",
                    "Dispatching write fail notification to the next layer.  sessionid = 7"));
}

TEST_P(ZephSSLIOEngineFailureTest, InAStartIsReturnedAndNothingIsTold) {
    Prepare();
    if (std::string(GetParam().pOperation) == "inject_ciphertext") {
        engine.failing = "";
        engine.acceptAtMost = 0;
        engine.wants = false;
        lower.CompleteRead("cipher");
        engine.failing = "inject_ciphertext";
        logger->Clear();
    }
    const int nScheduled = scheduler.scheduled;
    EXPECT_EQ(Write("abc"), eRC_Fail);
    EXPECT_THAT(logger->Messages(0), ElementsAre(GetParam().pText));
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_EQ(scheduler.scheduled, nScheduled);
}

INSTANTIATE_TEST_SUITE_P(
    EachOperation, ZephSSLIOEngineFailureTest,
    testing::Values(FailureCase{"inject_ciphertext", "inject_ciphertext failed.  sessionid = 7"},
                    FailureCase{"extract_ciphertext", "extract_ciphertext failed.  sessionid = 7"},
                    FailureCase{"read_plaintext", "read_plaintext failed.  sessionid = 7"},
                    FailureCase{"write_plaintext", "write_plaintext failed.  sessionid = 7"},
                    FailureCase{"shutdown", "shutdown failed.  sessionid = 7"}),
    [](const auto& info) { return std::string(info.param.pOperation); });

TEST_F(ZephSSLIOPumpTest, FailingShutdownWhileStoppingIsFatal) {
    TurnOn();
    engine.wants = true;
    ssl.StopSSL(true);
    engine.failing = "shutdown";
    ssl.SetVerbose(true);
    lower.CompleteRead("c");
    EXPECT_TRUE(logger->Has(0, "shutdown failed.  sessionid = 7"));
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

// Starts below

TEST_F(ZephSSLIOPumpTest, FailingStartWriteBelowIsLoggedReturnedAndTriedAgain) {
    TurnOn();
    ssl.SetVerbose(true);
    engine.output = "abc";
    lower.results = {31};
    EXPECT_EQ(Read(10), 31u);
    EXPECT_THAT(logger->Messages(0), ElementsAre("starting write with 3 bytes.  sessionid = 7",
                                                 "StartWrite failed with error 31.  sessionid = 7"));
    EXPECT_THAT(scheduler.tasks, IsEmpty());
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(lower.events, ElementsAre("write 3", "write 3"));
}

TEST_F(ZephSSLIOPumpTest, FailingStartReadBelowIsLoggedReturnedAndTriedAgain) {
    TurnOn();
    ssl.SetVerbose(true);
    engine.wants = true;
    lower.results = {1};
    EXPECT_EQ(Read(10), 1u);
    EXPECT_THAT(logger->Messages(0), ElementsAre("starting read with 8096 bytes.  sessionid = 7",
                                                 "StartRead failed with error 1.  sessionid = 7"));
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 8096"));
}

TEST_F(ZephSSLIOPumpTest, NthStartBelowFailingInACompletionIsFatal) {
    for (const std::uint32_t nFailing : {0u, 1u}) {
        lower = ScriptedLowerLayer();
        listener.events.clear();
        Initialize(nullptr);
        TurnOn();
        engine.wants = true;
        Read(10);
        scheduler.RunTasks();
        engine.onInject = [this] { engine.output = "answer"; };
        lower.results = std::deque<std::uint32_t>(nFailing, 0);
        lower.results.push_back(201);
        lower.CompleteRead("cipher");
        EXPECT_THAT(listener.events, ElementsAre("read failed 0")) << nFailing;
        ssl.Terminate();
        engine.onInject = nullptr;
        engine.output.clear();
    }
}

TEST_F(ZephSSLIOPumpTest, AFatalErrorReachesAReadThatWasServedAndNotToldYet) {
    TurnOn();
    engine.wants = true;
    OpenRead(10);
    engine.onInject = [this] { engine.plaintext = "abc", engine.output = "answer"; };
    lower.results = {201};
    lower.CompleteRead("cipher");
    EXPECT_THAT(listener.events, ElementsAre("read failed 0"));
}

TEST_F(ZephSSLIOPumpTest, AFatalErrorReachesAWriteThatWasTakenAndNotToldYet) {
    TurnOn();
    engine.output = "hello";
    engine.writeAtMost = 0;
    OpenWrite("abc");
    engine.writeAtMost = 3;
    engine.onWritePlaintext = [this] { engine.output = "record"; };
    lower.results = {201};
    lower.CompleteWrite();
    EXPECT_EQ(engine.written, "abc");
    EXPECT_THAT(listener.events, ElementsAre("write failed 0"));
}

TEST_F(ZephSSLIOPumpTest, NoReadBelowUnlessTheEngineWantsInput) {
    TurnOn();
    Read(10);
    Write("abc");
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOPumpTest, OneReadAndOneWriteBelowAtATime) {
    TurnOn();
    engine.wants = true;
    engine.output = "abc";
    Read(10);
    engine.output = "def";
    Read(10);
    EXPECT_THAT(lower.events, ElementsAre("write 3", "read 8096"));
    EXPECT_EQ(engine.output, "def");  // the buffer stands still while it is sent
    lower.CompleteWrite();
    EXPECT_THAT(lower.events, ElementsAre("write 3", "read 8096", "write 3"));
}

TEST_F(ZephSSLIOPumpTest, ReadBelowAsksForTheFreePartOnly) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 0;
    Read(10);
    lower.CompleteRead("12345");
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 8091"));
    lower.CompleteRead("678");
    EXPECT_EQ(engine.calls[engine.calls.size() - 3], "inject_ciphertext 8");
}

TEST_F(ZephSSLIOPumpTest, NoReadBelowWithoutFreeRoom) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 0;
    Read(10);
    lower.CompleteRead(std::string(BufferLength - 1, 'c'));
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 1"));
    lower.CompleteRead("c");
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 1"));
    EXPECT_EQ(Write("abc"), 0u);
}

// Inject and extract

TEST_F(ZephSSLIOPumpTest, EngineThatTakesLittleIsOfferedTheRestInOrder) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 4;
    Read(10);
    engine.calls.clear();
    lower.CompleteRead("0123456789");
    EXPECT_EQ(engine.injected, "0123456789");
    EXPECT_THAT(engine.calls,
                ElementsAre("inject_ciphertext 10", "extract_ciphertext 8096", "read_plaintext 10",
                            "inject_ciphertext 6", "extract_ciphertext 8096", "read_plaintext 10",
                            "inject_ciphertext 2", "extract_ciphertext 8096", "read_plaintext 10",
                            "extract_ciphertext 8096", "read_plaintext 10"));
}

TEST_F(ZephSSLIOPumpTest, NothingIsInjectedWhileAReadBelowRuns) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 0;
    OpenRead(10);
    lower.CompleteRead("abc");
    engine.calls.clear();
    engine.acceptAtMost = 10;
    Write("x");
    EXPECT_EQ(engine.Count("inject_ciphertext"), 0u);
    lower.CompleteRead("def");
    EXPECT_EQ(engine.injected, "abcdef");
}

TEST_F(ZephSSLIOPumpTest, OutputBeyondTheBufferIsExtractedAsItEmpties) {
    TurnOn();
    engine.output = std::string(BufferLength, 'a') + std::string(100, 'b');
    Read(10);
    EXPECT_EQ(engine.output.size(), 100u);
    EXPECT_EQ(lower.CompleteWrite(BufferLength - 50), std::string(BufferLength - 50, 'a'));
    EXPECT_EQ(engine.output, "");
    EXPECT_EQ(lower.CompleteWrite(), std::string(50, 'a') + std::string(100, 'b'));
    EXPECT_EQ(lower.pWrite, nullptr);
}

TEST_F(ZephSSLIOPumpTest, FullWriteBufferIsNotExtractedInto) {
    TurnOn();
    engine.output = std::string(BufferLength + 1, 'a');
    Read(10);
    EXPECT_THAT(engine.calls, ElementsAre("extract_ciphertext 8096", "read_plaintext 10"));
    EXPECT_THAT(lower.events, ElementsAre("write 8096"));
}

TEST_F(ZephSSLIOPumpTest, OutputMadeByAReadOfNothingIsStillSent) {
    TurnOn();
    bool bAsked = false;
    engine.onReadPlaintext = [&] {
        if (!std::exchange(bAsked, true)) engine.output = "renegotiate";
    };
    EXPECT_EQ(Read(10), 0u);
    EXPECT_EQ(lower.CompleteWrite(), "renegotiate");
}

TEST_F(ZephSSLIOPumpTest, EngineThatIsBlockedForEverDoesNotSpin) {
    TurnOn();
    engine.blocked = true;
    EXPECT_EQ(Read(10), 0u);
    EXPECT_EQ(engine.Count("extract_ciphertext"), 2u);
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_EQ(engine.written, "abc");
}

TEST_F(ZephSSLIOPumpTest, EngineThatAsksForShutdownForEverDoesNotSpin) {
    TurnOn();
    engine.shutdownResults = std::deque<std::int32_t>(1000, 1);
    EXPECT_EQ(ssl.StopSSL(true), 0u);
    EXPECT_LE(engine.waits.size(), 2u);
    EXPECT_THAT(listener.events, IsEmpty());
}

// The close, seen by the engine

TEST_F(ZephSSLIOPumpTest, CloseSeenByAReadStopsTLSAndHandsTheReadDown) {
    TurnOn();
    SeeClose();
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(engine.calls, ElementsAre("extract_ciphertext 8096", "read_plaintext 10", "shutdown 0",
                                          "extract_ciphertext 8096", "extract_unprocessed_ciphertext 8096"));
    EXPECT_THAT(manager.released, ElementsAre(&engine));
    EXPECT_THAT(Take(listener.events), ElementsAre("stopped"));
    EXPECT_THAT(lower.events, ElementsAre("read 10"));
    EXPECT_EQ(lower.pRead, readBuffer.data());
    scheduler.RunTasks();
    lower.CompleteRead("clear");
    EXPECT_THAT(listener.events, ElementsAre("read ok 5"));
}

TEST_F(ZephSSLIOPumpTest, CloseSeenByAWriteStopsTLSAndHandsTheWriteDown) {
    TurnOn();
    engine.writeAtMost = 0;
    SeeClose();
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_THAT(engine.calls, ElementsAre("extract_ciphertext 8096", "write_plaintext 3", "shutdown 0",
                                          "extract_ciphertext 8096", "extract_unprocessed_ciphertext 8096"));
    EXPECT_THAT(lower.events, ElementsAre("write 3"));
    EXPECT_EQ(lower.CompleteWrite(), "abc");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "write ok 3"));
}

TEST_F(ZephSSLIOPumpTest, CloseIsNotSeenWhileBytesAreStillDecrypted) {
    TurnOn();
    SeeClose();
    engine.plaintext = "last";
    Read(10);
    scheduler.RunTasks();
    EXPECT_THAT(Take(listener.events), ElementsAre("read ok 4"));
    EXPECT_THAT(manager.released, IsEmpty());
    Read(10);
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
}

TEST_F(ZephSSLIOPumpTest, CloseSeenPassesOnWhatStopSSLWasToldLast) {
    TurnOn();
    ssl.StopSSL(true);
    ssl.StartSSL();
    engine.shutdownComplete = true;
    engine.wants = true;
    ssl.StopSSL(true);
    manager.next = {&second};
    ssl.StartSSL();
    second.shuttingDown = true;
    Read(10);
    EXPECT_THAT(second.waits, ElementsAre(true));
}

TEST_F(ZephSSLIOPumpTest, WriteThatTheEngineHadBegunIsNotSentTwice) {
    TurnOn();
    engine.writeAtMost = 2;
    bool bTaken = false;
    OpenRead(10);
    SeeClose();
    engine.shuttingDown = false;
    engine.onReadPlaintext = [&] {
        if (std::exchange(bTaken, true)) engine.shuttingDown = true;
    };
    Write("abc");
    scheduler.RunTasks();
    EXPECT_EQ(engine.written, "ab");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "write ok 2"));
    EXPECT_THAT(lower.events, ElementsAre("read 10"));
}

TEST_F(ZephSSLIOPumpTest, FailureToHandAReadDownIsReturned) {
    TurnOn();
    SeeClose();
    lower.results = {202};
    EXPECT_EQ(Read(10), 202u);
    EXPECT_THAT(lower.events, ElementsAre("read 10"));
    EXPECT_EQ(scheduler.scheduled, 0);
}

TEST_F(ZephSSLIOPumpTest, FailureToHandAWriteDownInACompletionIsFatal) {
    TurnOn();
    engine.writeAtMost = 0;
    engine.wants = true;
    OpenWrite("abc");
    SeeClose();
    lower.results = {11};
    lower.CompleteRead("alert");
    // The write's record is gone by then, so that it can not be handed down twice.
    EXPECT_THAT(listener.events, ElementsAre("stopped", "fatal"));
}

TEST_F(ZephSSLIOPumpTest, OpenReadAndWriteAreBothHandedDown) {
    TurnOn();
    engine.writeAtMost = 0;
    engine.wants = true;
    OpenRead(10);
    OpenWrite("abc");
    SeeClose();
    lower.CompleteRead("alert");
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 10", "write 3"));
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
}

// The end of a stop

TEST_F(ZephSSLIOPumpTest, StopWaitsForThePeerWithAnEmptyWriteBuffer) {
    TurnOn();
    engine.wants = true;
    EXPECT_EQ(ssl.StopSSL(true), 0u);
    Write("still in");
    EXPECT_THAT(manager.released, IsEmpty());
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_THAT(lower.events, ElementsAre("read 8096"));
    EXPECT_EQ(engine.written, "");
}

TEST_F(ZephSSLIOPumpTest, StopWaitsUntilTheCloseAlertIsSent) {
    TurnOn();
    engine.onShutdown = [this] { engine.output = "alert", engine.shutdownComplete = true; };
    engine.shutdownResults = {1};
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    EXPECT_THAT(manager.released, IsEmpty());
    EXPECT_THAT(lower.events, ElementsAre("write 5"));
    lower.CompleteWrite(4);
    EXPECT_THAT(manager.released, IsEmpty());
    lower.CompleteWrite();
    EXPECT_THAT(manager.released, ElementsAre(&engine));
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    EXPECT_THAT(lower.events, ElementsAre("write 5", "write 1"));
}

TEST_F(ZephSSLIOPumpTest, StopIsToldAfterTheEngineWasReleasedAndForgotten) {
    TurnOn();
    engine.shutdownComplete = true;
    manager.onRelease = [this] { listener.events.push_back("released"); };
    listener.onStopped = [] { throw std::runtime_error("who hears of it may leave by any way"); };
    EXPECT_THROW(ssl.StopSSL(false), std::runtime_error);
    EXPECT_THAT(listener.events, ElementsAre("released", "stopped"));
    ssl.Terminate();
    EXPECT_THAT(manager.released, ElementsAre(&engine)) << "once";
}

TEST_F(ZephSSLIOPumpTest, CountsThatAreOfferedToTheEngineFitItsSignedNumbers) {
    constexpr std::uint32_t Most = 0xFFFFFFFF;
    TurnOn();
    engine.writeAtMost = 0;
    EXPECT_EQ(ssl.StartRead(Most, readBuffer.data()), 0u);
    EXPECT_EQ(ssl.StartWrite(Most, readBuffer.data()), 0u);
    EXPECT_THAT(engine.calls, Contains("read_plaintext 2147483647"));
    EXPECT_THAT(engine.calls, Contains("write_plaintext 2147483647"));
}

TEST_F(ZephSSLIOPumpTest, RestartDuringAStopWaitsUntilTheCloseAlertIsSent) {
    TurnOn();
    engine.onShutdown = [this] { engine.output = "alert", engine.shutdownComplete = true; };
    engine.shutdownResults = {1};
    ssl.StopSSL(false);
    ssl.StartSSL();
    EXPECT_EQ(manager.asked, 1);
    second.output = "hello";
    ssl.SetVerbose(true);
    EXPECT_EQ(lower.CompleteWrite(), "alert");
    EXPECT_EQ(manager.asked, 2);
    EXPECT_THAT(manager.released, ElementsAre(&engine));
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    EXPECT_THAT(second.verbose, ElementsAre(true));
    EXPECT_EQ(lower.CompleteWrite(), "hello");
    second.plaintext = "again";
    Read(10);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 5"));
}

TEST_F(ZephSSLIOPumpTest, RestartGivesWhatTheOldEngineDidNotConsumeToTheNewOne) {
    TurnOn();
    ssl.StopSSL(false);
    ssl.StartSSL();
    engine.shutdownComplete = true;
    engine.unprocessed = "server hello";
    Write("abc");
    EXPECT_EQ(second.injected, "server hello");
    EXPECT_EQ(second.written, "abc");
}

TEST_F(ZephSSLIOPumpTest, RestartWithoutAnEngineIsFatalAndKeepsClearTextIn) {
    TurnOn();
    manager.next.clear();
    engine.wants = true;
    ssl.StopSSL(true);
    ssl.StartSSL();
    engine.shutdownComplete = true;
    lower.CompleteRead("alert");
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("failed to get connection from connection manager.  sessionid = 7"));
    EXPECT_THAT(listener.events, ElementsAre("stopped", "fatal"));
    Write("secret");
    EXPECT_THAT(lower.events, ElementsAre("read 8096"));
}

// Bytes behind the close

TEST_F(ZephSSLIOPumpTest, BytesBehindTheCloseSatisfyTheOpenRead) {
    TurnOn();
    engine.wants = true;
    OpenRead(3);
    SeeClose();
    engine.unprocessed = "clear";
    lower.CompleteRead("alert");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 3"));
    EXPECT_EQ(ReadText(4), "cle.");
    EXPECT_THAT(lower.events, ElementsAre("read 8096"));
}

TEST_F(ZephSSLIOPumpTest, ReadAfterAStopGetsTheBytesBehindTheCloseFirst) {
    TurnOn();
    engine.shutdownComplete = true;
    engine.unprocessed = "clear";
    ssl.StopSSL(false);
    ssl.SetVerbose(true);
    EXPECT_EQ(Read(2), 0u);
    EXPECT_THAT(logger->Messages(0),
                ElementsAre("TLS is off -- satisfying read from local buffer.  sessionid = 7"));
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    scheduler.RunTasks();
    EXPECT_EQ(ReadText(3), "cl.");
    EXPECT_EQ(Read(100), 0u);
    scheduler.RunTasks();
    EXPECT_EQ(ReadText(4), "ear.");
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 2", "read ok 3"));
    EXPECT_THAT(lower.events, IsEmpty());
    EXPECT_EQ(Read(100), 0u);
    EXPECT_THAT(lower.events, ElementsAre("read 100"));
}

TEST_F(ZephSSLIOPumpTest, BytesBehindTheCloseComeAfterThoseNeverInjected) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 0;
    OpenRead(20);
    lower.CompleteRead("never injected");
    engine.calls.clear();
    engine.wants = false;
    SeeClose();
    engine.unprocessed = "behind ";
    // The read below still runs; its end lets the pump inject again, in vain.
    lower.CompleteRead(".");
    EXPECT_EQ(ReadText(20), "never injected.behin");
}

TEST_F(ZephSSLIOPumpTest, BufferGrowsBy1024UntilACallLeavesRoom) {
    const std::vector<std::pair<std::size_t, Events>> cases = {
        {8095, {"extract_unprocessed_ciphertext 8096"}},
        {8096, {"extract_unprocessed_ciphertext 8096", "extract_unprocessed_ciphertext 1024"}},
        {9119, {"extract_unprocessed_ciphertext 8096", "extract_unprocessed_ciphertext 1024"}},
        {9120,
         {"extract_unprocessed_ciphertext 8096", "extract_unprocessed_ciphertext 1024",
          "extract_unprocessed_ciphertext 1024"}},
    };
    for (const auto& [nBytes, expected] : cases) {
        Initialize(nullptr);
        TurnOn();
        engine.shutdownComplete = true;
        engine.unprocessed = std::string(nBytes - 1, 'a') + "z";
        ssl.StopSSL(false);
        engine.calls.erase(engine.calls.begin());
        EXPECT_EQ(engine.calls, expected) << nBytes;
        Read(20000);
        scheduler.RunTasks();
        EXPECT_EQ(listener.events.back(), "read ok " + std::to_string(nBytes));
        EXPECT_EQ(ReadText(nBytes), std::string(nBytes - 1, 'a') + "z");
        ssl.Terminate();
    }
}

TEST_F(ZephSSLIOPumpTest, NoMemoryForBytesBehindTheCloseIsFatal) {
    TurnOn();
    engine.shutdownComplete = true;
    engine.unprocessed = std::string(20000, 'a');
    const auto previous =
        ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    EXPECT_EQ(ssl.StopSSL(false), eRC_Fail);
    ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

// Idle

TEST_F(ZephSSLIOPumpTest, AnIdleStageHoldsNeitherBufferAndTakesBothForTheNextTransfer) {
    TurnOn();
    ssl.ReleaseIdleMemory();
    EXPECT_EQ(engine.idleReleases, 1);
    {
        allocationsLeft = 1;
        const ReplacedAllocator one(RefuseAfterSome);
        const std::uint8_t byte = 'a';
        EXPECT_EQ(ssl.StartWrite(1, &byte), 3u) << "room for one of them is not enough";
    }
    engine.output = "record";
    OpenWrite("abc");
    EXPECT_EQ(lower.CompleteWrite(), "record");
}

TEST_F(ZephSSLIOPumpTest, OutputThatNobodySendsYetStays) {
    engine.output = "hello";
    ASSERT_EQ(ssl.StartSSL(), 0u);
    ssl.ReleaseIdleMemory();
    ASSERT_EQ(ssl.RegisterIOCompletionHandler(&listener), 0u);
    EXPECT_EQ(lower.CompleteWrite(), "hello");
}

TEST_F(ZephSSLIOPumpTest, OutputThatIsBeingSentStays) {
    TurnOn();
    engine.output = "record";
    OpenWrite("abc");
    ssl.ReleaseIdleMemory();
    EXPECT_EQ(lower.CompleteWrite(), "record");
}

TEST_F(ZephSSLIOPumpTest, RoomThatTheLayerBelowReadsIntoStays) {
    TurnOn();
    engine.wants = true;
    OpenRead(10);
    ssl.ReleaseIdleMemory();
    lower.CompleteRead("c");
    EXPECT_EQ(engine.injected, "c");
}

TEST_F(ZephSSLIOPumpTest, BytesBehindTheCloseStayForTheNextRead) {
    TurnOn();
    engine.shutdownComplete = true;
    engine.unprocessed = "clear";
    ASSERT_EQ(ssl.StopSSL(false), 0u);
    ssl.ReleaseIdleMemory();
    OpenRead(10);
    EXPECT_EQ(ReadText(6), "clear.");
}

// What follows a write

TEST_F(ZephSSLIOPumpTest, WhatTheEngineHoldsByNowGoesWithTheWriteUnderWay) {
    TurnOn();
    engine.output = "head";
    OpenWrite("abc");
    ASSERT_EQ(lower.nWrite, 4u);
    EXPECT_EQ(ssl.TakeWriteTail().nBytes, 0u);
    engine.output = "body";
    const auto tail = ssl.TakeWriteTail();
    EXPECT_EQ(tail.nBytes, 4u);
    EXPECT_FALSE(tail.bMoreFollows);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(lower.pWrite), 8), "headbody");
    lower.nWrite += tail.nBytes;
    lower.CompleteWrite();
    EXPECT_EQ(lower.pWrite, nullptr);  // nothing is left
}

TEST_F(ZephSSLIOPumpTest, WhatDoesNotFitBehindAWriteFollowsIt) {
    TurnOn();
    engine.output = "head";
    OpenWrite("abc");
    engine.output = std::string(9000, 'b');
    const auto tail = ssl.TakeWriteTail();
    EXPECT_EQ(tail.nBytes, 8092u);  // what is left of the buffer
    EXPECT_TRUE(tail.bMoreFollows);
    lower.nWrite += tail.nBytes;
    lower.CompleteWrite();
    EXPECT_EQ(lower.nWrite, 908u);
}

TEST_F(ZephSSLIOPumpTest, NothingGoesWithAWriteOfAnotherState) {
    EXPECT_EQ(ssl.TakeWriteTail().nBytes, 0u);
    TurnOn();
    engine.blocked = true;
    EXPECT_FALSE(ssl.TakeWriteTail().bMoreFollows);  // no write is under way
    engine.blocked = false;
    engine.output = "head";
    OpenWrite("abc");
    ASSERT_EQ(ssl.StopSSL(false), 0u);
    engine.output = "alert";
    EXPECT_EQ(ssl.TakeWriteTail().nBytes, 0u);
}

}  // namespace
}  // namespace Ombry::Tests
