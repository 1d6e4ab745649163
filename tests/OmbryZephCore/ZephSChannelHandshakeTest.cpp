#include "tests/OmbryZephCore/ReplacedAllocator.h"
#include "tests/OmbryZephCore/SChannelFixture.h"

#include <gmock/gmock.h>

#include <limits>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;
using testing::IsEmpty;

class SChannelHandshakeTest : public SChannelFixture {};

TEST_F(SChannelHandshakeTest, AClientStartsInTheStatedOrder) {
    StartClient();
    EXPECT_THAT(
        provider.calls,
        ElementsAre("LoadModule SCHANNEL.DLL", "FindEntryPoint InitSecurityInterfaceA", "CallEntryPoint",
                    "QuerySecurityPackageInfoA Microsoft Unified Security Protocol Provider",
                    "FreeContextBuffer", "InitializeSecurityContextA"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelHandshakeTest, TheFirstStepHasItsOwnFlagsNoInputAndTheWholeBuffer) {
    StartClient();
    ASSERT_EQ(provider.stepCalls.size(), 1u);
    const auto& call = provider.stepCalls[0];
    EXPECT_EQ(call.flags, 0x8090u);
    EXPECT_FALSE(call.hasContext);
    EXPECT_FALSE(call.hasInput);
    EXPECT_EQ(call.room, 256u);
    EXPECT_EQ(call.targetName, "server.example");
    EXPECT_EQ(call.credentials, &credentials);
}

TEST_F(SChannelHandshakeTest, TheFirstFlightWaitsToBeExtracted) {
    StartClient("first flight");
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_FALSE(connection->IsOutputBlocked());
    EXPECT_FALSE(connection->IsShuttingDown());
    EXPECT_FALSE(connection->IsShutdownComplete());
    EXPECT_EQ(Extract(5).second, "first");
    EXPECT_EQ(Extract().second, " flight");
    EXPECT_EQ(Extract().first, 0);
}

TEST_F(SChannelHandshakeTest, AClientWithoutNameGivesTheProviderNone) {
    provider.steps = {{SecIContinueNeeded}};
    EXPECT_EQ(connection->InitializeAsClient(nullptr, nullptr), 0);
    EXPECT_EQ(provider.stepCalls[0].targetName, "(null)");
    EXPECT_EQ(provider.stepCalls[0].credentials, nullptr);
}

TEST_F(SChannelHandshakeTest, FailsIfTheLibraryIsMissing) {
    provider.loadErrors["SCHANNEL.DLL"] = 2;
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("Cannot load SCHANNEL.DLL (error 2)."));
}

TEST_F(SChannelHandshakeTest, FailsIfThePackageIsUnknown) {
    provider.packageStatus = SecEInternalError;
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("QuerySecurityPackageInfoA failed with error -2146893052"));
    EXPECT_EQ(provider.calls.back(), "ReleaseModule");
    EXPECT_EQ(provider.CallsOf("FreeContextBuffer"), 0);
}

TEST_F(SChannelHandshakeTest, FailsWithoutMemoryForEitherBufferAndReturnsThePackageInfo) {
    for (int fail = 0; fail < 2; ++fail) {
        allocationsLeft = fail;
        const auto before = OmbryZephCore::ZephIOBuffer::ReplaceAllocator(&RefuseAfterSome);
        const std::int32_t result = connection->InitializeAsClient(&credentials, "a");
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator(before);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(provider.CallsOf("FreeContextBuffer"), fail + 1);
        EXPECT_EQ(provider.calls.back(), "ReleaseModule");
        EXPECT_THAT(provider.stepCalls, IsEmpty());
    }
}

TEST_F(SChannelHandshakeTest, AFailedFirstStepIsLoggedAndUnloads) {
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("InitializeSecurityContextA failed with error -2146893048"));
    EXPECT_EQ(provider.CallsOf("DeleteSecurityContext"), 0);
    EXPECT_EQ(provider.calls.back(), "ReleaseModule");
}

TEST_F(SChannelHandshakeTest, AFirstStepThatLacksRoomOrInputIsAPlainFailure) {
    for (SECURITY_STATUS status : {SecEBufferTooSmall, SecEIncompleteMessage}) {
        provider.steps = {{status}};
        EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), -1);
        EXPECT_FALSE(connection->WantsCiphertext());
        EXPECT_FALSE(connection->IsOutputBlocked());
    }
    EXPECT_THAT(logger->Messages(4), ElementsAre("InitializeSecurityContextA failed with error -2146893023",
                                                 "InitializeSecurityContextA failed with error -2146893032"));
}

TEST_F(SChannelHandshakeTest, AFirstStepThatNeedsCompletionIsCompleted) {
    provider.steps = {{SecICompleteNeeded, "tok"}};
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), 0);
    EXPECT_EQ(provider.completedToken, "tok");
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Extract().second, "tok");
}

TEST_F(SChannelHandshakeTest, AFirstStepThatNeedsCompletionAndMoreIsCompletedAndWaits) {
    provider.steps = {{SecICompleteAndContinue, "tok"}};
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), 0);
    EXPECT_EQ(provider.completedToken, "tok");
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(Extract().second, "tok");
}

TEST_F(SChannelHandshakeTest, AFailedCompletionOfTheFirstStepEndsTheSession) {
    for (SECURITY_STATUS status : {SecICompleteNeeded, SecICompleteAndContinue}) {
        provider.completeStatus = SecEInternalError;
        provider.steps = {{status, "tok"}};
        EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), -1);
        EXPECT_EQ(logger->Messages(4).back(), "CompleteAuthToken failed with error -2146893052");
        EXPECT_EQ(logger->Entries().back().function,
                  "OmbryZephCore::ZephSChannelConnection::InitializeAsClient");
        EXPECT_FALSE(connection->WantsCiphertext());
        EXPECT_EQ(Extract().first, 0);
        EXPECT_THAT(provider.books.Faults(), IsEmpty());
    }
}

TEST_F(SChannelHandshakeTest, AFirstStepThatIsReadyAtOnceAsksForNoCertificateAndWritesNothing) {
    connection->SetValidator([](CertificateContextPointer*) { return false; });
    provider.steps = {{SecEOk, "tok"}};
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), 0);
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1);
    EXPECT_EQ(Extract().second, "tok");
    EXPECT_EQ(Write("x"), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_EQ(provider.CallsOf("QueryContextAttributesA 83"), 0);
    EXPECT_EQ(provider.CallsOf("QueryContextAttributesA 4"), 0);
}

TEST_F(SChannelHandshakeTest, AnUnknownSuccessOfTheFirstStepIsLoggedAtLevel4AndGoesOn) {
    provider.steps = {{0x90399, "tok"}};
    EXPECT_EQ(connection->InitializeAsClient(&credentials, "a"), 0);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Unexpected success status 590745 from InitializeSecurityContextA."));
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Extract().second, "tok");
}

TEST_F(SChannelHandshakeTest, WithoutInputAStepIsNotTaken) {
    StartClient();
    Forget();
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0);
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_THAT(provider.stepCalls, IsEmpty());
}

TEST_F(SChannelHandshakeTest, ALaterStepOffersAllInputAndTheFreePartOfTheOutput) {
    StartClient();
    Forget();
    provider.steps = {{SecIContinueNeeded, "answer"}};
    EXPECT_EQ(Inject("server hello"), 12);
    ASSERT_EQ(provider.stepCalls.size(), 1u);
    const auto& call = provider.stepCalls[0];
    EXPECT_EQ(call.flags, 0x8010u);
    EXPECT_TRUE(call.hasContext);
    EXPECT_EQ(call.offered, "server hello");
    EXPECT_THAT(call.inputTypes, ElementsAre(SecBufferToken, SecBufferEmpty));
    EXPECT_EQ(call.room, 256u - 5u);
    EXPECT_EQ(call.targetName, "server.example");
    EXPECT_EQ(call.credentials, &credentials);
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(Extract().second, "helloanswer");
}

TEST_F(SChannelHandshakeTest, InputThatWasTakenIsNotOfferedAgain) {
    StartClient();
    provider.steps = {{SecIContinueNeeded, "t"}, {SecIContinueNeeded, "t"}};
    Inject("one");
    Inject("two");
    EXPECT_EQ(provider.stepCalls.back().offered, "two");
}

TEST_F(SChannelHandshakeTest, AnIncompleteMessageWaitsAndIsOfferedWithWhatFollows) {
    StartClient();
    provider.steps = {{SecEIncompleteMessage}, {SecIContinueNeeded, "t"}};
    EXPECT_EQ(Inject("ab"), 2);
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(Inject("cd"), 2);
    EXPECT_EQ(provider.stepCalls.back().offered, "abcd");
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelHandshakeTest, OutputThatDoesNotFitBlocksUntilSomeIsExtracted) {
    StartClient();
    provider.steps = {{SecEBufferTooSmall}};
    EXPECT_EQ(Inject("ab"), 2);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_FALSE(connection->WantsCiphertext());
    provider.steps = {{SecIContinueNeeded, "t"}};
    EXPECT_EQ(Extract().second, "hello");
    EXPECT_FALSE(connection->IsOutputBlocked());
    EXPECT_EQ(provider.stepCalls.back().offered, "ab");
    EXPECT_EQ(provider.stepCalls.back().room, 256u);
    EXPECT_EQ(Extract().second, "t");
}

TEST_F(SChannelHandshakeTest, AFailedStepIsLoggedAndFailsTheOperation) {
    StartClient();
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(Inject("ab"), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("InitializeSecurityContextA failed with error -2146893048"));
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(Extract().first, -1);
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(Read().first, -1);
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(Write("x"), -1);
}

TEST_F(SChannelHandshakeTest, BytesOfAnExtraBufferStayForLater) {
    for (std::size_t slot : {0u, 1u}) {
        StartClient();
        provider.steps = {{SecIContinueNeeded, "t", 3, 0, slot}, {SecIContinueNeeded, "t"}};
        Inject("hello+xyz");
        EXPECT_EQ(provider.stepCalls.back().offered, "hello+xyz");
        Inject("!");
        EXPECT_EQ(provider.stepCalls.back().offered, "xyz!") << slot;
    }
}

TEST_F(SChannelHandshakeTest, MoreExtraBytesThanWereOfferedAreAllOfThem) {
    StartClient();
    provider.steps = {{SecIContinueNeeded, "t", 100}, {SecIContinueNeeded, "t"}};
    EXPECT_EQ(Inject("abc"), 3);
    EXPECT_EQ(Inject("d"), 1);
    EXPECT_EQ(provider.stepCalls.back().offered, "abcd");
}

TEST_F(SChannelHandshakeTest, ATokenLongerThanItsRoomEndsWithTheRoom) {
    StartClient();
    provider.steps = {{SecIContinueNeeded, "token", -1, 0x77, 1, 1000}};
    EXPECT_EQ(Inject("abc"), 3);
    EXPECT_EQ(Extract().first, 256);
}

TEST_F(SChannelHandshakeTest, AStepThatNeedsMoreAndMadeNoTokenIsRepeatedWithTheExtraBytes) {
    StartClient();
    Forget();
    provider.steps = {{SecIContinueNeeded, "", 3}, {SecIContinueNeeded, "", 1}, {SecIContinueNeeded, "t"}};
    EXPECT_EQ(Inject("abcdef"), 6);
    ASSERT_EQ(provider.stepCalls.size(), 3u);
    EXPECT_EQ(provider.stepCalls[1].offered, "def");
    EXPECT_EQ(provider.stepCalls[2].offered, "f");
    for (const auto& call : provider.stepCalls)
        EXPECT_THAT(call.inputTypes, ElementsAre(SecBufferToken, SecBufferEmpty));
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(Extract().second, "hellot");
}

TEST_F(SChannelHandshakeTest, AStepThatNeedsMoreAndTookNothingWaitsInsteadOfRepeating) {
    StartClient();
    Forget();
    provider.steps = {{SecIContinueNeeded, "", 6}, {SecIContinueNeeded, "t"}};
    EXPECT_EQ(Inject("abcdef"), 6);
    EXPECT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(Inject("g"), 1);
    EXPECT_EQ(provider.stepCalls.back().offered, "abcdefg");
}

TEST_F(SChannelHandshakeTest, AnExtraBufferOfNoBytesEndsTheRepetition) {
    StartClient();
    Forget();
    provider.steps = {{SecIContinueNeeded, "", 0}};
    EXPECT_EQ(Inject("abc"), 3);
    EXPECT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelHandshakeTest, AStepWithoutTokenAndWithoutExtraIsNotRepeated) {
    StartClient();
    Forget();
    provider.steps = {{SecIContinueNeeded, ""}, {SecEInvalidToken}};
    EXPECT_EQ(Inject("abc"), 3);
    EXPECT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelHandshakeTest, AStepWithATokenIsNotRepeatedThoughBytesAreLeft) {
    StartClient();
    Forget();
    provider.steps = {{SecIContinueNeeded, "t", 2}, {SecEInvalidToken}};
    EXPECT_EQ(Inject("abc"), 3);
    EXPECT_EQ(provider.stepCalls.size(), 1u);
}

TEST_F(SChannelHandshakeTest, ALaterStepThatNeedsCompletionIsCompleted) {
    StartClient("");
    provider.steps = {{SecICompleteNeeded, "one"}, {SecICompleteAndContinue, "two"}};
    EXPECT_EQ(Inject("a"), 1);
    EXPECT_EQ(provider.completedToken, "one");
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Inject("b"), 1);
    EXPECT_EQ(provider.completedToken, "two");
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(Extract().second, "onetwo");
}

TEST_F(SChannelHandshakeTest, AFailedCompletionOfALaterStepFailsAndSendsNothing) {
    for (SECURITY_STATUS status : {SecICompleteNeeded, SecICompleteAndContinue}) {
        StartClient("");
        provider.completeStatus = SecEInternalError;
        provider.steps = {{status, "tok"}};
        EXPECT_EQ(Inject("a"), -1);
        EXPECT_EQ(logger->Messages(4).back(), "CompleteAuthToken failed with error -2146893052");
        EXPECT_EQ(logger->Entries().back().function,
                  "OmbryZephCore::ZephSChannelConnection::ContinueInitIfNecessary");
        EXPECT_EQ(Extract().first, 0);
    }
}

TEST_F(SChannelHandshakeTest, AnUnknownSuccessOfALaterStepIsLoggedAtLevel3AndGoesOn) {
    StartClient("");
    provider.steps = {{0x90399, "tok"}};
    EXPECT_EQ(Inject("a"), 1);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Unexpected success status 590745 from InitializeSecurityContextA."));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(Extract().second, "tok");
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0);
}

TEST_F(SChannelHandshakeTest, TheLastStepFetchesTheStreamSizesAndIsReady) {
    StartClient();
    Forget();
    provider.steps = {{SecEOk, "finished"}};
    EXPECT_EQ(Inject("server"), 6);
    EXPECT_THAT(provider.calls, ElementsAre("InitializeSecurityContextA", "QueryContextAttributesA 4"));
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1);
    EXPECT_EQ(Extract().second, "hellofinished");
}

TEST_F(SChannelHandshakeTest, BothBuffersGrowToHoldOneRecord) {
    provider.sizes = {5, 3, 1000, 4, 1};
    Connect();
    EXPECT_EQ(Inject(std::string(1008, 'r')), 1008);
    EXPECT_EQ(Inject("r"), 0);
    EXPECT_EQ(Write(std::string(1001, 'w')), 1000);
}

TEST_F(SChannelHandshakeTest, BuffersThatAreLongEnoughStayAsTheyAre) {
    provider.sizes = {5, 3, 64, 4, 1};
    Connect();
    EXPECT_EQ(Inject(std::string(300, 'r')), 256);
}

TEST_F(SChannelHandshakeTest, StreamSizesBeyond32BitsFail) {
    provider.sizes = {std::numeric_limits<std::uint32_t>::max(), 1, 0, 4, 1};
    StartClient();
    provider.steps = {{SecEOk}};
    EXPECT_EQ(Inject("server"), -1);
}

TEST_F(SChannelHandshakeTest, FailsWithoutMemoryForARecordInEitherBuffer) {
    provider.sizes = {5, 3, 100000, 4, 1};
    for (int fail = 0; fail < 2; ++fail) {
        StartClient();
        provider.steps = {{SecEOk}};
        allocationsLeft = fail;
        const auto before = OmbryZephCore::ZephIOBuffer::ReplaceAllocator(&RefuseAfterSome);
        const std::int32_t result = Inject("server");
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator(before);
        EXPECT_EQ(result, -1) << fail;
        EXPECT_EQ(allocationsLeft, -1) << fail;
        EXPECT_EQ(Write("x"), -1) << fail;
    }
}

TEST_F(SChannelHandshakeTest, FailsIfTheStreamSizesCannotBeHad) {
    provider.sizesStatus = SecEInternalError;
    StartClient();
    provider.steps = {{SecEOk, "finished"}};
    EXPECT_EQ(Inject("server"), -1);
    EXPECT_THAT(
        logger->Messages(4),
        ElementsAre("QueryContextAttributesA for SECPKG_ATTR_STREAM_SIZES failed with error -2146893052"));
    EXPECT_EQ(logger->Entries().size(), 1u);
}

TEST_F(SChannelHandshakeTest, TheValidatorSeesTheCertificateBeforeAnythingElseAndItIsFreed) {
    const CertificateContext* seen = nullptr;
    connection->SetValidator([&](CertificateContextPointer* certificate) {
        seen = *certificate;
        provider.calls.push_back("validator");
        *certificate = nullptr;  // freed all the same
        return true;
    });
    StartClient();
    Forget();
    provider.steps = {{SecEOk}};
    EXPECT_EQ(Inject("server"), 6);
    EXPECT_EQ(seen, &provider.certificate);
    EXPECT_THAT(provider.calls, ElementsAre("InitializeSecurityContextA", "QueryContextAttributesA 83",
                                            "validator", "FreeCertificate", "QueryContextAttributesA 4"));
}

TEST_F(SChannelHandshakeTest, ARefusedCertificateFailsTheOperationThatFinishedTheHandshake) {
    connection->SetValidator([](CertificateContextPointer*) { return false; });
    StartClient();
    Forget();
    provider.steps = {{SecEOk, "finished"}};
    EXPECT_EQ(Inject("server"), -1);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Certificate validation returned failure.  Connection will be closed."));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_THAT(provider.calls,
                ElementsAre("InitializeSecurityContextA", "QueryContextAttributesA 83", "FreeCertificate"));
}

TEST_F(SChannelHandshakeTest, ARefusedSessionMovesNoByteInAnyLaterOperation) {
    connection->SetValidator([](CertificateContextPointer*) { return false; });
    StartClient();
    provider.steps = {{SecEOk, "finished", 2}};
    EXPECT_EQ(Inject("server12"), -1);
    Forget();
    EXPECT_EQ(Read().first, -1);
    EXPECT_EQ(Write("secret"), -1);
    EXPECT_EQ(Inject("more"), -1);
    EXPECT_EQ(Extract().first, -1);
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SChannelHandshakeTest, ASessionWhoseValidatorThrowsIsRefusedAndItsCertificateFreed) {
    connection->SetValidator([](CertificateContextPointer*) -> bool { throw std::runtime_error("judge"); });
    StartClient();
    provider.steps = {{SecEOk}};
    EXPECT_THROW(Inject("server"), std::runtime_error);
    EXPECT_EQ(provider.CallsOf("FreeCertificate"), 1);
    EXPECT_EQ(Write("secret"), -1);
}

TEST_F(SChannelHandshakeTest, ASessionWithoutCertificateIsRefusedWhereAValidatorIsSet) {
    int asked = 0;
    connection->SetValidator([&](CertificateContextPointer*) { return ++asked > 0; });
    provider.nullCertificate = true;
    StartClient();
    provider.steps = {{SecEOk}};
    EXPECT_EQ(Inject("server"), -1);
    EXPECT_EQ(asked, 0);
    EXPECT_TRUE(logger->Has(3, "Certificate validation returned failure.  Connection will be closed."));
    EXPECT_EQ(provider.CallsOf("FreeCertificate"), 0);
}

TEST_F(SChannelHandshakeTest, FailsIfTheCertificateCannotBeHad) {
    int asked = 0;
    connection->SetValidator([&](CertificateContextPointer*) { return ++asked > 0; });
    provider.certificateStatus = SecEInternalError;
    StartClient();
    provider.steps = {{SecEOk}};
    EXPECT_EQ(Inject("server"), -1);
    EXPECT_EQ(asked, 0);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("QueryContextAttributesA for SECPKG_ATTR_REMOTE_CERT_CONTEXT "
                            "failed with error -2146893052"));
    EXPECT_EQ(provider.CallsOf("QueryContextAttributesA 4"), 0);
}

TEST_F(SChannelHandshakeTest, WithoutValidatorTheCertificateIsNotEvenFetched) {
    Connect();
    EXPECT_EQ(provider.CallsOf("QueryContextAttributesA 83"), 0);
}

TEST_F(SChannelHandshakeTest, TheOperationThatFinishesTheHandshakeMayBeAnExtraction) {
    StartClient();
    provider.steps = {{SecEBufferTooSmall}, {SecEOk, "finished"}};
    Inject("server");
    EXPECT_EQ(Extract().second, "hello");
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1);
    EXPECT_EQ(Extract().second, "finished");
}

TEST_F(SChannelHandshakeTest, ReadsAndWritesWaitForTheHandshake) {
    StartClient();
    EXPECT_EQ(Read().first, 0);
    EXPECT_EQ(Write("x"), 0);
    EXPECT_EQ(provider.CallsOf("EncryptMessage"), 0);
    EXPECT_EQ(provider.CallsOf("DecryptMessage"), 0);
}

TEST_F(SChannelHandshakeTest, InputOfTheHandshakeIsNeverDecrypted) {
    StartClient();
    Inject("half a message");
    EXPECT_EQ(Read().first, 0);
    EXPECT_EQ(provider.CallsOf("DecryptMessage"), 0);
}

TEST_F(SChannelHandshakeTest, CarryingOnSaysReadyWaitingOrFailed) {
    StartClient();
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0) << "no input";
    Inject("a");
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0) << "incomplete";
    provider.steps = {{SecEBufferTooSmall}};
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0) << "no room";
    provider.steps = {{SecIContinueNeeded, "", 1}};
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0) << "nothing taken";
    provider.steps = {{SecIContinueNeeded, "token"}};
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0) << "a step among others";
    Inject("b");
    provider.steps = {{SecEOk}};
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1) << "the last step";
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1) << "nothing to carry on";
    StartClient();
    Inject("c");
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(connection->ContinueInitIfNecessary(), -1);
}

TEST_F(SChannelHandshakeTest, CommonTasksFailWithMinusOne) {
    provider.packageStatus = SecEInternalError;
    EXPECT_EQ(connection->DoCommonInitializationTasks(), -1);
    provider.packageStatus = SecEOk;
    EXPECT_EQ(connection->DoCommonInitializationTasks(), 0);
    OmbryZephCore::ZephSChannelConnection other(logger);
    provider.loadErrors["SCHANNEL.DLL"] = 126;
    EXPECT_EQ(other.DoCommonInitializationTasks(), -1);
}

TEST_F(SChannelHandshakeTest, AServerWaitsForTheFirstFlight) {
    EXPECT_EQ(connection->InitializeAsServer(&credentials), 0);
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_THAT(provider.stepCalls, IsEmpty());
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0);
}

TEST_F(SChannelHandshakeTest, AServerAsksFirstForWhatItWantsAndThenForWhatItGot) {
    connection->InitializeAsServer(&credentials);
    provider.steps = {{SecEIncompleteMessage, "", -1, 0x11},
                      {SecIContinueNeeded, "s1", -1, 0x22},
                      {SecEOk, "s2", -1, 0x33}};
    Inject("a");
    Inject("b");
    Inject("c");
    ASSERT_EQ(provider.stepCalls.size(), 3u);
    for (const auto& call : provider.stepCalls)
        EXPECT_EQ(call.function, "AcceptSecurityContext");
    EXPECT_EQ(provider.stepCalls[0].flags, 0x10010u);
    EXPECT_FALSE(provider.stepCalls[0].hasContext);
    EXPECT_EQ(provider.stepCalls[1].flags, 0x10010u);
    EXPECT_FALSE(provider.stepCalls[1].hasContext);
    EXPECT_EQ(provider.stepCalls[1].offered, "ab");
    EXPECT_EQ(provider.stepCalls[2].flags, 0x22u);
    EXPECT_TRUE(provider.stepCalls[2].hasContext);
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1);
    EXPECT_EQ(Extract().second, "s1s2");
}

TEST_F(SChannelHandshakeTest, AServersMessagesNameItsOwnFunction) {
    connection->InitializeAsServer(&credentials);
    provider.steps = {{0x90399}, {SecEInvalidToken}};
    EXPECT_EQ(Inject("a"), 1);
    EXPECT_EQ(Inject("b"), -1);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Unexpected success status 590745 from AcceptSecurityContext."));
    EXPECT_THAT(logger->Messages(4), ElementsAre("AcceptSecurityContext failed with error -2146893048"));
}

TEST_F(SChannelHandshakeTest, AServerThatFailsToLoadIsNotStarted) {
    provider.loadErrors["SCHANNEL.DLL"] = 2;
    EXPECT_EQ(connection->InitializeAsServer(&credentials), -1);
    EXPECT_FALSE(connection->WantsCiphertext());
}

}  // namespace
}  // namespace Ombry::Tests
