#include "OmbryZephCore/ZephSSLIO.h"
#include "tests/Fakes/SSLIOFixture.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"

#include <gmock/gmock.h>

#include <thread>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using testing::ElementsAre;
using testing::IsEmpty;

class ZephSSLIOTest : public SSLIOFixture {
protected:
    /// What was logged at level 0 since the last call.
    Events Trace() {
        Events messages = logger->Messages(0);
        logger->Clear();
        return messages;
    }
};

// Initialize, Terminate, switches

TEST_F(ZephSSLIOTest, InitializeLogsNothingUnlessVerbose) {
    EXPECT_THAT(logger->Entries(), IsEmpty());
}

TEST_F(ZephSSLIOTest, InitializeVerboseLogsSuccess) {
    ssl.SetVerbose(true);
    Initialize(nullptr);
    EXPECT_THAT(Trace(), ElementsAre("Initialization succeeded.  sessionid = 7"));
}

TEST_F(ZephSSLIOTest, LogLinesNameFileAndQualifiedFunction) {
    ssl.SetVerbose(true);
    Initialize(nullptr);
    ASSERT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephSSLIO::Initialize");
    EXPECT_EQ(logger->Entries()[0].file, SourcePath("OmbryZephCore/ZephSSLIO.cpp"));
    EXPECT_GT(logger->Entries()[0].line, 0);
}

TEST_F(ZephSSLIOTest, NothingAsksTheLoggerUnlessVerbose) {
    TurnOn();
    engine.plaintext = "x";
    Read(10);
    scheduler.RunTasks();
    ssl.StopSSL(false);
    ssl.UnRegisterIOCompletionHandler();
    EXPECT_EQ(logger->EnabledCalls(), 0);
}

TEST_F(ZephSSLIOTest, InitializeWithoutMemoryForTheReadBufferFailsAndForgets) {
    const ReplacedAllocator none(RefuseEveryAllocation);
    ZephSSLIO stage(logger);
    EXPECT_EQ(stage.Initialize(&manager, &lower, &scheduler, 9, &listener, &scheduler, nullptr),
              eRC_OutOfMemory);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Failed to set read buffer length due to error 3, sessionid = 9"));
    EXPECT_EQ(stage.RegisterIOCompletionHandler(&listener), eRC_NotInitialized);
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTest, InitializeWithoutMemoryForTheWriteBufferFailsAndForgets) {
    allocationsLeft = 1;
    const ReplacedAllocator one(RefuseAfterSome);
    ZephSSLIO stage(logger);
    EXPECT_EQ(stage.Initialize(&manager, &lower, &scheduler, 9, &listener, &scheduler, nullptr),
              eRC_OutOfMemory);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Failed to set write buffer length due to error 3, sessionid = 9"));
    EXPECT_EQ(stage.RegisterIOCompletionHandler(&listener), eRC_NotInitialized);
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTest, BothBuffersHold8096Bytes) {
    TurnOn();
    engine.wants = true;
    engine.output = std::string(9000, 'c');
    Read(10);
    EXPECT_THAT(lower.events, ElementsAre("write 8096", "read 8096"));
}

TEST_F(ZephSSLIOTest, TerminateGivesTheEngineBackFromEachState) {
    const std::vector<std::function<void()>> roads = {
        [&] { ssl.StartSSL(); },
        [&] { ssl.StartSSL(), ssl.StopSSL(true); },
        [&] { ssl.StartSSL(), ssl.StopSSL(true), ssl.StartSSL(); },
    };
    for (const auto& road : roads) {
        manager.released.clear();
        Initialize(nullptr);
        road();
        EXPECT_THAT(manager.released, IsEmpty());
        ssl.Terminate();
        EXPECT_THAT(manager.released, ElementsAre(&engine));
    }
}

TEST_F(ZephSSLIOTest, TerminateWithoutAnEngineReleasesNothing) {
    ssl.Terminate();
    EXPECT_THAT(manager.released, IsEmpty());
}

TEST_F(ZephSSLIOTest, TerminateTwiceGivesTheEngineBackOnce) {
    TurnOn();
    ssl.Terminate();
    ssl.Terminate();
    EXPECT_THAT(manager.released, ElementsAre(&engine));
}

TEST_F(ZephSSLIOTest, DestructionGivesTheEngineBack) {
    {
        ZephSSLIO stage(logger);
        stage.Initialize(&manager, &lower, &scheduler, 9, &listener, &scheduler, nullptr);
        stage.StartSSL();
    }
    EXPECT_THAT(manager.released, ElementsAre(&engine));
}

TEST_F(ZephSSLIOTest, AfterTerminateEveryCallAnswersNotInitialized) {
    TurnOn();
    ssl.Terminate();
    EXPECT_EQ(Read(5), eRC_NotInitialized);
    EXPECT_EQ(Write("x"), eRC_NotInitialized);
    EXPECT_EQ(ssl.RequestDrainNotification(), eRC_NotInitialized);
    EXPECT_EQ(ssl.RegisterIOCompletionHandler(&listener), eRC_NotInitialized);
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTest, AfterTerminateAStageStartsFromNothing) {
    TurnOn();
    engine.wants = true;
    engine.output = "hello";
    engine.acceptAtMost = 0;
    Read(10);
    Write("unsent");
    lower.CompleteRead("left");
    ssl.Terminate();
    scheduler.tasks.clear();
    lower = ScriptedLowerLayer();
    listener.events.clear();
    Initialize(nullptr);
    Register();
    EXPECT_EQ(Read(10), 0u);
    EXPECT_THAT(lower.events, ElementsAre("read 10"));
    lower.CompleteRead("clear");
    EXPECT_THAT(listener.events, ElementsAre("read ok 5"));
    EXPECT_EQ(scheduler.tasks.size(), 0u);
}

TEST_F(ZephSSLIOTest, SetVerboseReachesTheEngineThatIsThereAndTheNextOne) {
    ssl.SetVerbose(true);
    ssl.StartSSL();
    EXPECT_THAT(engine.verbose, ElementsAre(true));
    ssl.SetVerbose(false);
    EXPECT_THAT(engine.verbose, ElementsAre(true, false));
}

TEST_F(ZephSSLIOTest, SetVerboseWithoutAnEngineOnlyStores) {
    ssl.SetVerbose(true);
    EXPECT_THAT(engine.verbose, IsEmpty());
}

// Registration

TEST_F(ZephSSLIOTest, RegisterNamesItselfBelowAndStartsPendingIOAfterwards) {
    engine.wants = true;
    engine.output = "hello";
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_THAT(lower.events, IsEmpty());  // nobody above could hear of it yet
    EXPECT_EQ(ssl.RegisterIOCompletionHandler(&listener), 0u);
    EXPECT_THAT(lower.events, ElementsAre("register", "write 5", "read 8096"));
    EXPECT_EQ(lower.pHandler, &ssl);
}

TEST_F(ZephSSLIOTest, RegisterFailsWithTheCodeFromBelowAndStoresNoHandler) {
    lower.registerResult = 42;
    EXPECT_EQ(ssl.RegisterIOCompletionHandler(&listener), 42u);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Failed to register with comm layer due to error 42. sessionid = 7"));
    engine.output = "hello";
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_THAT(lower.events, ElementsAre("register"));
}

TEST_F(ZephSSLIOTest, RegisterReturnsTheFailureOfPendingIO) {
    engine.output = "hello";
    ssl.StartSSL();
    lower.results = {11};
    EXPECT_EQ(ssl.RegisterIOCompletionHandler(&listener), 11u);
}

// TLS off

TEST_F(ZephSSLIOTest, OffPassesTransfersAndTheirCompletionsThrough) {
    Register();
    ssl.SetVerbose(true);
    const std::string passing = "TLS is off -- passing through to next layer.  sessionid = 7";
    EXPECT_EQ(Read(100), 0u);
    EXPECT_EQ(lower.pRead, readBuffer.data());
    EXPECT_EQ(Write("abc"), 0u);
    EXPECT_EQ(lower.pWrite, reinterpret_cast<const std::uint8_t*>(writeBuffer.data()));
    EXPECT_THAT(lower.events, ElementsAre("read 100", "write 3"));
    lower.CompleteRead("12345");
    lower.CompleteWrite(2);
    EXPECT_THAT(listener.events, ElementsAre("read ok 5", "write ok 2"));
    EXPECT_THAT(Trace(), ElementsAre(passing, passing, passing, passing));
    EXPECT_EQ(scheduler.scheduled, 0);
}

TEST_F(ZephSSLIOTest, OffPassesFailuresAndZeroBytesThrough) {
    Register();
    Read(100);
    lower.FailRead();
    Read(100);
    lower.CompleteRead("");
    Write("abc");
    lower.FailWrite();
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "read ok 0", "write failed 0"));
}

TEST_F(ZephSSLIOTest, OffReturnsTheResultsOfTheNextLayer) {
    Register();
    lower.results = {21, 22};
    EXPECT_EQ(Read(100), 21u);
    EXPECT_EQ(Write("abc"), 22u);
}

TEST_F(ZephSSLIOTest, OffCompletionWithoutAHandlerIsIgnored) {
    ssl.CompleteTask(TaskTypeRead, true, 5);
    EXPECT_THAT(listener.events, IsEmpty());
}

// StartSSL and StopSSL, each from each state

TEST_F(ZephSSLIOTest, StartFromOffTakesAnEngineAndPumps) {
    Register();
    ssl.SetVerbose(true);
    engine.output = "hello";
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_EQ(manager.asked, 1);
    EXPECT_THAT(engine.verbose, ElementsAre(true));
    EXPECT_THAT(lower.events, ElementsAre("write 5"));
    EXPECT_THAT(Trace(),
                ElementsAre("state = 0, sessionid = 7", "starting write with 5 bytes.  sessionid = 7"));
    EXPECT_EQ(scheduler.scheduled, 0);
}

TEST_F(ZephSSLIOTest, StartTwiceHasNoFurtherEffect) {
    TurnOn();
    ssl.SetVerbose(true);
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_EQ(manager.asked, 1);
    EXPECT_THAT(engine.calls, IsEmpty());
    EXPECT_THAT(Trace(), ElementsAre("state = 1, sessionid = 7"));
}

TEST_F(ZephSSLIOTest, StartDuringAStopWaitsForItsEnd) {
    TurnOn();
    ssl.StopSSL(true);
    engine.calls.clear();
    ssl.SetVerbose(true);
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_EQ(ssl.StartSSL(), 0u);
    EXPECT_THAT(engine.calls, IsEmpty());
    EXPECT_EQ(manager.asked, 1);
    EXPECT_THAT(Trace(), ElementsAre("state = 2, sessionid = 7", "state = 3, sessionid = 7"));
}

TEST_F(ZephSSLIOTest, StartWithoutAnEngineIsFatalAndStillKeepsClearTextIn) {
    Register();
    manager.next.clear();
    EXPECT_EQ(ssl.StartSSL(), eRC_Fail);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("failed to get connection from connection manager.  sessionid = 7"));
    EXPECT_EQ(logger->Entries().back().function, "OmbryZephCore::ZephSSLIO::StartSSL");
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
    Write("secret");
    Read(5);
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTest, StartWithAFailingEngineIsFatal) {
    Register();
    engine.failing = "extract_ciphertext";
    EXPECT_EQ(ssl.StartSSL(), eRC_Fail);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

TEST_F(ZephSSLIOTest, StopWhenOffDoesNothing) {
    Register();
    ssl.SetVerbose(true);
    EXPECT_EQ(ssl.StopSSL(true), 0u);
    EXPECT_THAT(Trace(), ElementsAre("state = 0sessionid = 7"));
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_EQ(Read(5), 0u);
    EXPECT_THAT(lower.events, ElementsAre("read 5"));
}

TEST_F(ZephSSLIOTest, StopWhenOnShutsTheEngineDownWithItsArgument) {
    for (const bool bWait : {false, true}) {
        Initialize(nullptr);
        TurnOn();
        engine.waits.clear();
        EXPECT_EQ(ssl.StopSSL(bWait), 0u);
        EXPECT_THAT(engine.waits, ElementsAre(bWait));
        ssl.Terminate();
    }
}

TEST_F(ZephSSLIOTest, StopDuringAStopDoesNothing) {
    TurnOn();
    ssl.StopSSL(true);
    engine.calls.clear();
    ssl.SetVerbose(true);
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    EXPECT_THAT(engine.calls, IsEmpty());
    EXPECT_THAT(Trace(), ElementsAre("state = 2sessionid = 7"));
}

TEST_F(ZephSSLIOTest, StopAfterARestartWasAskedForTakesTheRequestBack) {
    TurnOn();
    ssl.StopSSL(true);
    ssl.StartSSL();
    engine.waits.clear();
    engine.onShutdown = [this] { engine.shutdownComplete = true; };
    engine.shutdownResults = {1};
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    EXPECT_THAT(engine.waits, ElementsAre(false));
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    EXPECT_EQ(manager.asked, 1);
    Read(5);
    EXPECT_THAT(lower.events, ElementsAre("read 5"));
}

TEST_F(ZephSSLIOTest, StopWithAFailingEngineIsFatal) {
    TurnOn();
    engine.failing = "shutdown";
    EXPECT_EQ(ssl.StopSSL(false), eRC_Fail);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

TEST_F(ZephSSLIOTest, StopWithBytesForAnOpenReadSchedulesItsCompletion) {
    TurnOn();
    EXPECT_EQ(Read(10), 0u);
    scheduler.RunTasks();
    engine.shutdownComplete = true;
    engine.unprocessed = "clear";
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    EXPECT_THAT(listener.events, ElementsAre("stopped"));
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 5"));
    EXPECT_EQ(ReadText(5), "clear");
}

TEST_F(ZephSSLIOTest, StopBehindAReadThatWasServedStartsNoSecondOneBelow) {
    TurnOn();
    engine.plaintext = "abc";
    EXPECT_EQ(Read(10), 0u);
    engine.shutdownComplete = true;
    EXPECT_EQ(ssl.StopSSL(false), 0u);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("stopped", "read ok 3"));
    EXPECT_EQ(ReadText(4), "abc.");
    EXPECT_THAT(lower.events, IsEmpty());
}

TEST_F(ZephSSLIOTest, StopWithNothingToTellSchedulesNothing) {
    TurnOn();
    engine.shutdownComplete = true;
    ssl.StopSSL(false);
    EXPECT_EQ(scheduler.scheduled, 0);
}

// TLS on, user transfers

TEST_F(ZephSSLIOTest, ReadResultOfThePumpIsReturnedAsItIsAndTheReadStaysOpen) {
    TurnOn();
    engine.failing = "read_plaintext";
    EXPECT_EQ(Read(10), eRC_Fail);
    EXPECT_EQ(scheduler.scheduled, 0);
    EXPECT_THAT(listener.events, IsEmpty());
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, ElementsAre("read failed 0"));
}

TEST_F(ZephSSLIOTest, WriteResultOfThePumpIsReturnedAsItIsAndTheWriteStaysOpen) {
    TurnOn();
    engine.failing = "write_plaintext";
    EXPECT_EQ(Write("abc"), eRC_Fail);
    EXPECT_EQ(scheduler.scheduled, 0);
    ssl.AbortTask(TaskTypeWrite);
    EXPECT_THAT(listener.events, ElementsAre("write failed 0"));
}

TEST_F(ZephSSLIOTest, UserReadCompletesWithWhateverWasDecrypted) {
    TurnOn();
    engine.plaintext = "abc";
    EXPECT_EQ(Read(100), 0u);
    EXPECT_THAT(listener.events, IsEmpty());  // never from inside the call
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 3"));
    EXPECT_EQ(ReadText(4), "abc.");
    EXPECT_EQ(engine.Count("read_plaintext"), 1u);
}

TEST_F(ZephSSLIOTest, UserReadIsNeverGivenMoreThanItAskedFor) {
    TurnOn();
    engine.plaintext = "abcdef";
    Read(4);
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 4"));
    EXPECT_EQ(ReadText(5), "abcd.");
}

TEST_F(ZephSSLIOTest, UserWriteIsOfferedUntilTheEngineTakesNoMore) {
    TurnOn();
    engine.writeAtMost = 4;
    EXPECT_EQ(Write("0123456789"), 0u);
    EXPECT_EQ(engine.written, "0123456789");
    EXPECT_THAT(engine.calls,
                ElementsAre("extract_ciphertext 8096", "write_plaintext 10", "extract_ciphertext 8096",
                            "write_plaintext 6", "extract_ciphertext 8096", "write_plaintext 2",
                            "extract_ciphertext 8096"));
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("write ok 10"));
}

TEST_F(ZephSSLIOTest, OpenReadAndWriteArePumpedTogether) {
    TurnOn();
    Read(10);
    scheduler.RunTasks();
    engine.plaintext = "in";
    Write("out");
    scheduler.RunTasks();
    EXPECT_THAT(listener.events, ElementsAre("read ok 2", "write ok 3"));
}

// Completions from below with TLS on

TEST_F(ZephSSLIOTest, ReadCompletionIsInjectedAndDecrypted) {
    TurnOn();
    engine.wants = true;
    Read(10);
    scheduler.RunTasks();
    engine.calls.clear();
    engine.onInject = [this] { engine.plaintext = "plain", engine.wants = false; };
    ssl.SetVerbose(true);
    lower.CompleteRead("cipher");
    EXPECT_EQ(engine.injected, "cipher");
    EXPECT_EQ(ReadText(5), "plain");
    // Told at once: the completion from below is no call of the user's.
    EXPECT_THAT(listener.events, ElementsAre("read ok 5"));
    EXPECT_THAT(Trace(), ElementsAre("read completion -- 6 bytes transferred.  sessionid = 7",
                                     "Dispatching read completion notification.  sessionid = 7"));
    EXPECT_THAT(engine.calls, ElementsAre("inject_ciphertext 6", "extract_ciphertext 8096",
                                          "read_plaintext 10", "extract_ciphertext 8096"));
}

TEST_F(ZephSSLIOTest, ShortWriteCompletionSendsTheRest) {
    TurnOn();
    engine.output = "0123456789";
    Read(1);
    ssl.SetVerbose(true);
    EXPECT_EQ(lower.CompleteWrite(4), "0123");
    EXPECT_THAT(Trace(), ElementsAre("write completion -- 4 bytes transferred.  sessionid = 7",
                                     "starting write with 6 bytes.  sessionid = 7"));
    EXPECT_EQ(lower.CompleteWrite(1), "4");
    EXPECT_EQ(lower.CompleteWrite(4), "5678");
    EXPECT_EQ(lower.CompleteWrite(), "9");
    EXPECT_THAT(lower.events, ElementsAre("write 10", "write 6", "write 5", "write 1"));
    EXPECT_EQ(lower.pWrite, nullptr);
}

TEST_F(ZephSSLIOTest, AnyTypeButZeroIsAWrite) {
    TurnOn();
    engine.output = "ab";
    Read(1);
    lower.pWrite = nullptr;
    ssl.CompleteTask(5, true, 2);
    EXPECT_THAT(lower.events, ElementsAre("write 2"));
    engine.output = "c";
    Write("x");
    EXPECT_THAT(lower.events, ElementsAre("write 2", "write 1"));
}

TEST_F(ZephSSLIOTest, FailedTransferIsFatalToTheOpenTransfers) {
    TurnOn();
    engine.wants = true;
    engine.writeAtMost = 0;
    Read(10);
    Write("abc");
    scheduler.RunTasks();
    ssl.SetVerbose(true);
    lower.FailRead();
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "write failed 0"));
    for (const std::string transfer : {"read", "write"}) {
        EXPECT_EQ(logger->FunctionOf("Dispatching " + transfer +
                                     " fail notification to the next layer.  sessionid = 7"),
                  "OmbryZephCore::ZephSSLIO::HandleFatalError");
    }
    EXPECT_THAT(Trace(),
                ElementsAre("I/O operation failed.  sessionid = 7", "sessionid = 7",
                            "Dispatching read fail notification to the next layer.  sessionid = 7",
                            "Dispatching write fail notification to the next layer.  sessionid = 7"));
}

TEST_F(ZephSSLIOTest, FailedWriteBelowIsFatalToo) {
    TurnOn();
    engine.output = "abc";
    Read(10);
    scheduler.RunTasks();
    lower.FailWrite();
    EXPECT_THAT(listener.events, ElementsAre("read failed 0"));
}

TEST_F(ZephSSLIOTest, FatalErrorWithNothingOpenReachesTheNotifier) {
    TurnOn();
    engine.wants = true;
    Read(1);
    engine.plaintext = "x";
    lower.CompleteRead("c");
    ASSERT_THAT(Take(listener.events), ElementsAre("read ok 1"));
    lower.FailRead();
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

TEST_F(ZephSSLIOTest, FatalErrorWithAnOpenTransferDoesNotReachTheNotifier) {
    TurnOn();
    engine.wants = true;
    Read(1);
    lower.FailRead();
    EXPECT_THAT(listener.events, ElementsAre("read failed 0"));
    ssl.AbortTask(TaskTypeRead);
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "fatal"));
}

TEST_F(ZephSSLIOTest, SocketClosedUnderTLSIsFatalEvenOnAWrite) {
    const std::string text =
        "socket closed gracefully but TLS was not shut down first-- reporting a fatal error.  sessionid = 7";
    TurnOn();
    engine.wants = true;
    engine.output = "abc";
    Read(10);
    ssl.SetVerbose(true);
    lower.CompleteRead("");
    EXPECT_THAT(Take(listener.events), ElementsAre("read failed 0"));
    EXPECT_THAT(Trace(),
                ElementsAre("read completion -- 0 bytes transferred.  sessionid = 7", text, "sessionid = 7",
                            "Dispatching read fail notification to the next layer.  sessionid = 7"));
    lower.CompleteWrite(0);
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
    EXPECT_THAT(Trace(), ElementsAre("write completion -- 0 bytes transferred.  sessionid = 7", text,
                                     "sessionid = 7"));
}

TEST_F(ZephSSLIOTest, SocketClosedDuringAStopIsFatal) {
    TurnOn();
    engine.wants = true;
    ssl.StopSSL(true);
    lower.CompleteRead("");
    EXPECT_THAT(listener.events, ElementsAre("fatal"));
}

TEST_F(ZephSSLIOTest, AbortedTransferIsFatalAndNamed) {
    TurnOn();
    Read(10);
    scheduler.RunTasks();
    ssl.SetVerbose(true);
    ssl.AbortTask(TaskTypeRead);
    ssl.AbortTask(TaskTypeWrite);
    EXPECT_THAT(listener.events, ElementsAre("read failed 0", "fatal"));
    EXPECT_THAT(Trace(), ElementsAre("read operation cancelled.  sessionid = 7", "sessionid = 7",
                                     "Dispatching read fail notification to the next layer.  sessionid = 7",
                                     "write operation cancelled.  sessionid = 7", "sessionid = 7"));
}

TEST_F(ZephSSLIOTest, AfterAFailedReadBelowTheNextOneIsStarted) {
    TurnOn();
    engine.wants = true;
    Read(10);
    lower.FailRead();
    Read(10);
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 8096"));
}

TEST_F(ZephSSLIOTest, TransfersPassedThroughBeforeTheStartEndAsTheyBegan) {
    Register();
    Read(10);
    Write("abc");
    ssl.StartSSL();
    lower.CompleteRead("12345");
    lower.CompleteWrite();
    EXPECT_THAT(Take(listener.events), ElementsAre("read ok 5", "write ok 3"));
    EXPECT_EQ(engine.injected, "");
    ssl.CompleteTask(TaskTypeRead, true, 1);
    EXPECT_THAT(Take(listener.events), ElementsAre("read ok 1"));
    ssl.CompleteTask(TaskTypeRead, true, 0);
    EXPECT_THAT(listener.events, ElementsAre("fatal")) << "a close under TLS, whoever asked for the read";
}

TEST_F(ZephSSLIOTest, AfterAnAbortedReadBelowTheNextOneIsStarted) {
    TurnOn();
    engine.wants = true;
    Read(10);
    lower.pRead = nullptr;
    ssl.AbortTask(TaskTypeRead);
    Read(10);
    EXPECT_THAT(lower.events, ElementsAre("read 8096", "read 8096"));
}

TEST_F(ZephSSLIOTest, CompletionOfMoreThanWasAskedForIsCut) {
    TurnOn();
    engine.wants = true;
    engine.acceptAtMost = 0;
    engine.output = "abc";
    Read(10);
    ssl.CompleteTask(TaskTypeRead, true, 0xFFFFFFFF);
    EXPECT_EQ(engine.Count("inject_ciphertext"), 1u);
    EXPECT_EQ(engine.calls[engine.calls.size() - 2], "inject_ciphertext 8096");
    ssl.CompleteTask(TaskTypeWrite, true, 0xFFFFFFFF);
    engine.output = "d";
    lower.pWrite = nullptr;
    Read(10);
    EXPECT_EQ(lower.events.back(), "write 1");
}

}  // namespace
}  // namespace Ombry::Tests
