#include "tests/OmbryZephCore/SChannelFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = std::pair<std::int32_t, std::string>;

class SChannelDataTest : public SChannelFixture {
protected:
    void SetUp() override { Connect(); }

    /// Input of a record whose plaintext lies at an offset, followed by `extra` bytes.
    void Receive(const std::string& input, std::uint32_t offset, std::uint32_t length, int extra = -1) {
        Decryption decryption{SecEOk, {{SecBufferStreamHeader, 0, offset}, {SecBufferData, offset, length}}};
        if (extra >= 0) {
            const auto count = static_cast<std::uint32_t>(extra);
            decryption.pieces.push_back(
                {SecBufferExtra, static_cast<std::uint32_t>(input.size()) - count, count});
        }
        provider.decryptions.push_back(decryption);
        ASSERT_EQ(Inject(input), static_cast<std::int32_t>(input.size()));
    }
};

TEST_F(SChannelDataTest, WithoutInputAReadWantsCiphertextAndAsksNobody) {
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SChannelDataTest, AnEmptyWriteMakesARecordWithoutPlaintext) {
    EXPECT_EQ(Write(""), 0);
    EXPECT_EQ(Extract(), Result(7, "<<<<<>>"));
}

TEST_F(SChannelDataTest, InputIsUnreadUntilItsPlaintextWasRead) {
    EXPECT_FALSE(connection->HasUnread());
    Receive("HHdataT", 2, 4);
    EXPECT_TRUE(connection->HasUnread());
    EXPECT_EQ(Read(1), Result(1, "d"));
    EXPECT_TRUE(connection->HasUnread());
    EXPECT_EQ(Read(), Result(3, "ata"));
    EXPECT_FALSE(connection->HasUnread());
}

TEST_F(SChannelDataTest, AHandshakeHoldsNothingUnreadAndWhatIsClosedMayNotBeUsedAgain) {
    StartClient();
    provider.steps = {{SecEIncompleteMessage}};
    ASSERT_EQ(Inject("half a hello"), 12);
    EXPECT_FALSE(connection->HasUnread());

    Connect();
    ASSERT_FALSE(connection->HasUnread());
    provider.steps = {{SecEOk, "close"}};
    ASSERT_EQ(connection->shutdown(true), 0);
    EXPECT_TRUE(connection->HasUnread());
}

TEST_F(SChannelDataTest, APeerThatWasRefusedMayNotBeUsedAgain) {
    connection->SetValidator([](CertificateContextPointer*) { return false; });
    StartClient();
    provider.steps = {{SecEOk}};
    ASSERT_EQ(Inject("server"), -1);
    EXPECT_TRUE(connection->HasUnread());
}

TEST_F(SChannelDataTest, DecryptsInPlaceWithFourBuffersOverAllInput) {
    Receive("HHdataT", 2, 4);
    EXPECT_EQ(Read(), Result(4, "data"));
    EXPECT_THAT(provider.decryptInputs, ElementsAre("HHdataT"));
    EXPECT_THAT(provider.decryptTypes,
                ElementsAre(SecBufferData, SecBufferEmpty, SecBufferEmpty, SecBufferEmpty));
    EXPECT_THAT(logger->Messages(0), ElementsAre("got data buffer with 4 bytes."));
}

TEST_F(SChannelDataTest, PlaintextAtTheFrontIsTakenWhereItIs) {
    Receive("dataT", 0, 4);
    EXPECT_EQ(Read(), Result(4, "data"));
}

TEST_F(SChannelDataTest, PlaintextLongerThanItsHeaderMovesToTheFrontWhole) {
    Receive("Habcdefgh", 1, 8);
    EXPECT_EQ(Read(), Result(8, "abcdefgh"));
}

TEST_F(SChannelDataTest, ConsumedInputIsNotDecryptedAgain) {
    Receive("HHdataT", 2, 4);
    Read();
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_EQ(provider.CallsOf("DecryptMessage"), 1);
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelDataTest, AnIncompleteRecordWantsCiphertextAndKeepsItsBytes) {
    provider.decryptions = {{SecEIncompleteMessage, {{SecBufferMissing, 0, 3}}}};
    Inject("HHd");
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->WantsCiphertext());
    Receive("ataT", 2, 4);
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Read(), Result(4, "data"));
    EXPECT_EQ(provider.decryptInputs.back(), "HHdataT");
}

TEST_F(SChannelDataTest, AFailedDecryptionIsLoggedAndFatal) {
    provider.decryptions = {{SecEDecryptFailure, {}}};
    Inject("x");
    EXPECT_EQ(Read().first, -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("DecryptMessage failed with error -2146893008"));
}

TEST_F(SChannelDataTest, ASmallReadReturnsTheRestLaterWithoutDecrypting) {
    Receive("HHabcdefT", 2, 6);
    EXPECT_EQ(Read(1), Result(1, "a"));
    EXPECT_EQ(Read(3), Result(3, "bcd"));
    EXPECT_EQ(Read(0), Result(0, ""));
    EXPECT_EQ(Read(-5), Result(0, ""));
    EXPECT_EQ(Read(3), Result(2, "ef"));
    EXPECT_EQ(provider.CallsOf("DecryptMessage"), 1);
}

TEST_F(SChannelDataTest, ThePartOfTheNextRecordStaysForTheNextRead) {
    Receive("HHoneTHHtw", 2, 3, 4);
    EXPECT_EQ(Read(), Result(3, "one"));
    EXPECT_THAT(logger->Messages(0),
                ElementsAre("got data buffer with 3 bytes.", "got extra buffer with 4 bytes. (normal case)"));
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_EQ(provider.decryptInputs.back(), "HHtw");
    Receive("oT", 2, 3);
    EXPECT_EQ(Read(), Result(3, "two"));
    EXPECT_EQ(provider.decryptInputs.back(), "HHtwoT");
}

TEST_F(SChannelDataTest, ExtraBytesStandRightBehindPlaintextThatIsReadInParts) {
    Receive("HHoneTNEXT", 2, 3, 4);
    EXPECT_EQ(Read(2), Result(2, "on"));
    EXPECT_EQ(Inject("!"), 1);
    EXPECT_EQ(Read(2), Result(1, "e"));
    Read();
    EXPECT_EQ(provider.decryptInputs.back(), "NEXT!");
}

TEST_F(SChannelDataTest, TheLastBuffersOfTheirKindCount) {
    provider.decryptions = {
        {SecEOk,
         {{SecBufferData, 0, 1}, {SecBufferExtra, 0, 1}, {SecBufferData, 2, 2}, {SecBufferExtra, 5, 3}}}};
    Inject("abcdeXYZ");
    EXPECT_EQ(Read(), Result(2, "cd"));
    Read();
    EXPECT_EQ(provider.decryptInputs.back(), "XYZ");
}

TEST_F(SChannelDataTest, AnEmptyRecordGoesRoundToTheNext) {
    provider.decryptions = {
        {SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 0}, {SecBufferExtra, 2, 7}}}};
    Receive("EEHHdataT", 2, 4);
    EXPECT_EQ(Read(), Result(4, "data"));
    EXPECT_EQ(provider.decryptInputs.back(), "HHdataT");
    EXPECT_FALSE(connection->IsShuttingDown());
}

TEST_F(SChannelDataTest, AnEmptyRecordAtTheEndWantsCiphertext) {
    provider.decryptions = {{SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 0}}}};
    Inject("EE");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(provider.CallsOf("DecryptMessage"), 1);
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelDataTest, ARoundThatTakesNothingWaitsInsteadOfRepeating) {
    provider.decryptions = {{SecEOk, {{SecBufferExtra, 0, 2}}}, {SecEDecryptFailure, {}}};
    Inject("EE");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(provider.CallsOf("DecryptMessage"), 1);
}

TEST_F(SChannelDataTest, PlaintextOutsideTheInputIsAFailure) {
    provider.decryptions = {{SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 3}}}};
    Inject("HHda");
    EXPECT_EQ(Read().first, -1);
}

TEST_F(SChannelDataTest, PlaintextBehindTheInputIsAFailure) {
    provider.decryptions = {{SecEOk, {{SecBufferData, 5, 1}}}};
    Inject("HHda");
    EXPECT_EQ(Read().first, -1);
}

TEST_F(SChannelDataTest, ACloseOfThePeerReturnsZeroAndKeepsWhatFollows) {
    provider.decryptions = {{SecIContextExpired, {{SecBufferExtra, 3, 4}}}};
    Inject("ALTmore");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->IsShuttingDown());
    EXPECT_FALSE(connection->IsShutdownComplete());
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_THAT(logger->Messages(0), ElementsAre("got extra buffer with 4 bytes. (SEC_I_CONTEXT_EXPIRED)"));
    EXPECT_EQ(ExtractUnprocessed(3), Result(3, "mor"));
    EXPECT_EQ(ExtractUnprocessed(-1), Result(0, ""));
    EXPECT_EQ(ExtractUnprocessed(), Result(1, "e"));
    EXPECT_EQ(ExtractUnprocessed(), Result(0, ""));
}

TEST_F(SChannelDataTest, ACloseOfThePeerWithNothingBehindLeavesNothing) {
    provider.decryptions = {{SecIContextExpired, {}}};
    Inject("ALT");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->IsShuttingDown());
    EXPECT_EQ(ExtractUnprocessed(), Result(0, ""));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelDataTest, AnAlertRecordWithoutDataCountsAsAClose) {
    provider.decryptions = {
        {SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 0}, {SecBufferExtra, 3, 2}}}};
    Inject("\x15LTxy");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->IsShuttingDown());
    EXPECT_THAT(logger->Messages(0), ElementsAre("got extra buffer with 2 bytes. (0x15 == *((unsigned "
                                                 "char*)m_ReadBuffer.data()))"));
    EXPECT_EQ(ExtractUnprocessed(), Result(2, "xy"));
}

TEST_F(SChannelDataTest, AnAlertRecordWithoutDataAndWithNothingBehindLeavesNothing) {
    provider.decryptions = {{SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 0}}}};
    Inject("\x15LT");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->IsShuttingDown());
    EXPECT_EQ(ExtractUnprocessed(), Result(0, ""));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelDataTest, NeighboursOfTheAlertRecordAreNoClose) {
    for (const char* record : {"\x14LT", "\x16LT", "\x17LT"}) {
        provider.decryptions = {{SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 0}}}};
        Inject(record);
        EXPECT_EQ(Read(), Result(0, ""));
        EXPECT_FALSE(connection->IsShuttingDown());
    }
}

TEST_F(SChannelDataTest, AnAlertRecordWithDataIsData) {
    Receive("\x15Hx", 2, 1);
    EXPECT_EQ(Read(), Result(1, "x"));
    EXPECT_FALSE(connection->IsShuttingDown());
}

TEST_F(SChannelDataTest, AnAlertRecordWithoutAnyDataBufferIsNoClose) {
    provider.decryptions = {{SecEOk, {{SecBufferStreamHeader, 0, 2}}}};
    Inject("\x15L");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_FALSE(connection->IsShuttingDown());
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelDataTest, APeerThatRenegotiatesIsAnsweredWithAFirstFlight) {
    provider.decryptions = {{SecIRenegotiate, {{SecBufferExtra, 2, 3}}}};
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    Inject("RRabc");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_THAT(logger->Messages(0), ElementsAre("got extra buffer with 3 bytes. (SEC_I_RENEGOTIATE)"));
    ASSERT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_EQ(provider.stepCalls[0].flags, 32u);
    EXPECT_TRUE(provider.stepCalls[0].hasContext);
    EXPECT_FALSE(provider.stepCalls[0].hasInput);
    EXPECT_EQ(provider.stepCalls[0].room, 256u);
    // Now the handshake goes on with whatever comes.
    provider.steps = {{SecEOk, "done"}};
    EXPECT_EQ(Write("x"), 1);
    EXPECT_EQ(provider.stepCalls.back().offered, "abc");
    EXPECT_EQ(provider.stepCalls.back().flags, 0x8010u);
}

TEST_F(SChannelDataTest, APeersRenegotiationWithNothingBehindLeavesNoInput) {
    provider.decryptions = {{SecIRenegotiate, {}}};
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    Inject("RR");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_THAT(logger->Messages(), IsEmpty());
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 0);
    EXPECT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelDataTest, AFirstFlightMadeInsideAReadIsNotSaidToBeBlockedOutput) {
    provider.decryptions = {{SecIRenegotiate, {}}};
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    Inject("RR");
    Read();
    EXPECT_FALSE(connection->IsOutputBlocked());
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(Extract(), Result(7, "rehello"));
}

TEST_F(SChannelDataTest, APeersRenegotiationThatCannotBeAnsweredNowIsDropped) {
    provider.decryptions = {{SecIRenegotiate, {}}};
    provider.steps = {{SecEBufferTooSmall}};
    Inject("RR");
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1);
    EXPECT_EQ(Write("x"), 1);
}

TEST_F(SChannelDataTest, APeersRenegotiationThatFailsIsFatal) {
    provider.decryptions = {{SecIRenegotiate, {}}};
    provider.steps = {{SecEInternalError}};
    Inject("RR");
    EXPECT_EQ(Read().first, -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("InitializeSecurityContextA failed with error -2146893052"));
}

TEST_F(SChannelDataTest, AnySuccessOfOurRenegotiationIsOne) {
    provider.steps = {{SecEOk, "rehello"}};
    EXPECT_EQ(connection->request_renegotiate(), 1);
    EXPECT_EQ(Extract(), Result(7, "rehello"));
}

TEST_F(SChannelDataTest, OurRenegotiationMakesAFlightAndHoldsWritesBack) {
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    EXPECT_EQ(connection->request_renegotiate(), 1);
    EXPECT_EQ(provider.stepCalls[0].flags, 32u);
    EXPECT_EQ(Write("x"), 0);
    EXPECT_EQ(provider.CallsOf("EncryptMessage"), 0);
    EXPECT_EQ(Extract(), Result(7, "rehello"));
}

TEST_F(SChannelDataTest, OurRenegotiationStillReadsUntilThePeerAnswers) {
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    connection->request_renegotiate();
    Receive("HHdataT", 2, 4);
    EXPECT_EQ(Read(), Result(4, "data"));
    provider.decryptions = {{SecIRenegotiate, {{SecBufferExtra, 0, 6}}}};
    provider.steps = {{SecEOk, "done"}};
    Inject("answer");
    EXPECT_EQ(Read(), Result(0, ""));  // the session is ready again, which is no count
    EXPECT_EQ(provider.stepCalls.back().offered, "answer");
    EXPECT_EQ(provider.stepCalls.back().flags, 0x8010u);
    EXPECT_EQ(connection->ContinueInitIfNecessary(), 1);
    EXPECT_EQ(Write("x"), 1);
}

TEST_F(SChannelDataTest, AFailedHandshakeOfOurRenegotiationIsFatal) {
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    connection->request_renegotiate();
    provider.decryptions = {{SecIRenegotiate, {{SecBufferExtra, 0, 6}}}};
    provider.steps = {{SecEInvalidToken}};
    Inject("answer");
    EXPECT_EQ(Read().first, -1);
}

TEST_F(SChannelDataTest, TheCertificateIsJudgedAgainAfterARenegotiation) {
    connection->SetValidator([](CertificateContextPointer*) { return false; });
    provider.steps = {{SecIContinueNeeded, "rehello"}};
    connection->request_renegotiate();
    provider.decryptions = {{SecIRenegotiate, {{SecBufferExtra, 0, 6}}}};
    provider.steps = {{SecEOk, "done"}};
    Inject("answer");
    EXPECT_EQ(Read().first, -1);
    EXPECT_EQ(Write("secret"), -1);
    EXPECT_EQ(provider.CallsOf("EncryptMessage"), 0);
    EXPECT_TRUE(logger->Has(3, "Certificate validation returned failure.  Connection will be closed."));
}

TEST_F(SChannelDataTest, ARenegotiationThatDoesNotFitIsNotOneYet) {
    provider.steps = {{SecEBufferTooSmall}};
    EXPECT_EQ(connection->request_renegotiate(), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_THAT(logger->Messages(), IsEmpty());
    EXPECT_EQ(Write("x"), 1);
}

TEST_F(SChannelDataTest, ARenegotiationThatFailsIsLogged) {
    provider.steps = {{SecEIncompleteMessage}};
    EXPECT_EQ(connection->request_renegotiate(), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("InitializeSecurityContextA failed with error -2146893032"));
    EXPECT_FALSE(connection->WantsCiphertext());
}

TEST_F(SChannelDataTest, WritesBuildOneRecordOfFourBuffers) {
    EXPECT_EQ(Write("abc"), 3);
    EXPECT_THAT(provider.encryptTypes,
                ElementsAre(SecBufferStreamHeader, SecBufferData, SecBufferStreamTrailer, SecBufferEmpty));
    EXPECT_THAT(provider.encryptSizes, ElementsAre(5u, 3u, 3u, 0u));
    EXPECT_THAT(provider.encryptOffsets, ElementsAre(0, 5, 8));
    EXPECT_EQ(Extract(), Result(10, "<<<<<bcd>>"));  // the trailer as made, not as promised
}

TEST_F(SChannelDataTest, ASecondWriteStandsBehindTheFirst) {
    Write("abc");
    EXPECT_EQ(Write("xyz"), 3);
    EXPECT_EQ(Extract(), Result(20, "<<<<<bcd>><<<<<yz{>>"));
}

TEST_F(SChannelDataTest, AWriteOfMoreThanARecordAcceptsOnlyPart) {
    EXPECT_EQ(Write(std::string(65, 'a')), 64);
    EXPECT_EQ(Write("a"), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_EQ(Extract(1000).first, 71);
    EXPECT_FALSE(connection->IsOutputBlocked());
    EXPECT_EQ(Write("a"), 1);
}

TEST_F(SChannelDataTest, AWriteOfExactlyARecordIsAcceptedWhole) {
    EXPECT_EQ(Write(std::string(64, 'a')), 64);
    EXPECT_FALSE(connection->IsOutputBlocked());
}

TEST_F(SChannelDataTest, WaitingOutputCountsAgainstTheCap) {
    Write(std::string(56, 'a'));  // 63 bytes of output
    EXPECT_EQ(Write("bc"), 1);    // one byte below the cap
    EXPECT_FALSE(connection->IsOutputBlocked());
    EXPECT_EQ(Write("c"), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
}

TEST_F(SChannelDataTest, OutputOfExactlyTheCapBlocks) {
    Write(std::string(57, 'a'));  // 64 bytes of output
    const int before = provider.CallsOf("EncryptMessage");
    EXPECT_EQ(Write("c"), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_EQ(provider.CallsOf("EncryptMessage"), before);
}

TEST_F(SChannelDataTest, AFailedEncryptionIsLoggedWithItsOddName) {
    provider.encryptStatus = SecEInternalError;
    EXPECT_EQ(Write("abc"), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("EncryptMEssage failed with error -2146893052"));
    provider.encryptStatus = SecEOk;
    EXPECT_EQ(Extract(), Result(0, ""));
}

TEST_F(SChannelDataTest, InjectionTakesOnlyWhatFits) {
    EXPECT_EQ(Inject(std::string(300, 'r')), 256);
    EXPECT_EQ(Inject("r"), 0);
    EXPECT_EQ(connection->inject_ciphertext(nullptr, -1), 0);
    EXPECT_EQ(ExtractUnprocessed(), Result(256, std::string(256, 'r')));
}

TEST_F(SChannelDataTest, UnprocessedBytesAreTakenFromTheFrontEvenIfTheyArePlaintext) {
    Receive("HHabcTnext", 2, 3, 4);
    EXPECT_EQ(Read(1), Result(1, "a"));
    EXPECT_EQ(ExtractUnprocessed(1), Result(1, "b"));
    EXPECT_EQ(Read(), Result(1, "c"));
    EXPECT_EQ(ExtractUnprocessed(), Result(4, "next"));
}

TEST_F(SChannelDataTest, TakingAllUnprocessedBytesTakesThePlaintextToo) {
    Receive("HHabcTnext", 2, 3, 4);
    EXPECT_EQ(Read(1), Result(1, "a"));
    EXPECT_EQ(ExtractUnprocessed(), Result(6, "bcnext"));
    EXPECT_EQ(Read(), Result(0, ""));
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelDataTest, VerboseTracesCiphertextAsUpperCasePairs) {
    connection->SetVerbose(true);
    Inject(std::string("\x00\x0a\xff~", 4));
    EXPECT_THAT(logger->Messages(0), ElementsAre("00 0A FF 7E"));
    logger->Clear();
    connection->SetVerbose(false);
    Write("a");
    connection->SetVerbose(true);
    EXPECT_EQ(Extract(3).first, 3);
    EXPECT_THAT(logger->Messages(0), ElementsAre("3C 3C 3C"));
    logger->Clear();
    EXPECT_EQ(Extract().first, 5);
    EXPECT_THAT(logger->Messages(0), ElementsAre("3C 3C 62 3E 3E"));
}

TEST_F(SChannelDataTest, TheTraceEndsItsLineAfter64Pairs) {
    connection->SetVerbose(true);
    const auto trace = [](int pairs) {
        std::string text;
        for (int n = 1; n <= pairs; ++n)
            text += n == pairs ? "72" : "72 ";
        return text;
    };
    Inject(std::string(63, 'r'));
    EXPECT_EQ(logger->Messages(0).back(), trace(63));
    Inject(std::string(64, 'r'));
    EXPECT_EQ(logger->Messages(0).back(), trace(64) + "\n");
    Inject(std::string(65, 'r'));
    EXPECT_EQ(logger->Messages(0).back(), trace(64) + "\n72");
    Inject(std::string(64, 'r'));  // only 64 of these fit
    EXPECT_EQ(logger->Messages(0).size(), 4u);
    Inject("r");
    EXPECT_EQ(logger->Messages(0).size(), 4u);  // nothing moved, nothing to show
}

TEST_F(SChannelDataTest, VerboseShowsDecryptedBytesAndWhatRemains) {
    connection->SetVerbose(true);
    Receive("HHsecretTHHn", 2, 6, 3);
    logger->Clear();
    EXPECT_EQ(Read(4).second, "secr");
    EXPECT_THAT(logger->Messages(0),
                ElementsAre("got data buffer with 6 bytes.", "got extra buffer with 3 bytes. (normal case)",
                            "returning 4 bytes of plaintext: 'secr'",
                            "2 unprocessed bytes remain in the plaintext buffer.",
                            "3 unprocessed bytes remain in the ciphertext buffer."));
}

TEST_F(SChannelDataTest, OnlyVerboseShowsBytes) {
    Receive("HHsecretT", 2, 6);
    Read();
    Write("secret");
    Extract();
    EXPECT_THAT(logger->Messages(), ElementsAre("got data buffer with 6 bytes."));
}

class SChannelServerDataTest : public SChannelFixture {
protected:
    void SetUp() override { ConnectAsServer(); }
};

TEST_F(SChannelServerDataTest, AClientThatRenegotiatesIsFollowedAtOnce) {
    provider.decryptions = {{SecIRenegotiate, {{SecBufferExtra, 0, 7}}}};
    provider.steps = {{SecIContinueNeeded, "answer"}};
    Inject("rehello");
    EXPECT_EQ(Read(), Result(0, ""));
    ASSERT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_EQ(provider.stepCalls[0].function, "AcceptSecurityContext");
    EXPECT_EQ(provider.stepCalls[0].flags, 0x77u);
    EXPECT_EQ(provider.stepCalls[0].offered, "rehello");
    EXPECT_EQ(Extract(), Result(6, "answer"));
    EXPECT_TRUE(connection->WantsCiphertext());
}

TEST_F(SChannelServerDataTest, AServerAsksForARenegotiationThroughItsOwnFunction) {
    provider.steps = {{SecIContinueNeeded, "request"}, {SecEInternalError}};
    EXPECT_EQ(connection->request_renegotiate(), 1);
    EXPECT_EQ(provider.stepCalls[0].function, "AcceptSecurityContext");
    EXPECT_EQ(provider.stepCalls[0].flags, 32u);
    EXPECT_EQ(connection->request_renegotiate(), -1);
    EXPECT_THAT(logger->Messages(4), ElementsAre("AcceptSecurityContext failed with error -2146893052"));
}

}  // namespace
}  // namespace Ombry::Tests
