#include "tests/OmbryZephCore/SChannelFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = std::pair<std::int32_t, std::string>;

class SChannelShutdownTest : public SChannelFixture {
protected:
    void SetUp() override { Connect(); }

    /// What was offered in each step, the close itself left out.
    std::vector<std::string> Offers() const {
        std::vector<std::string> offers;
        for (const auto& call : provider.stepCalls) {
            if (call.hasInput) offers.push_back(call.offered);
        }
        return offers;
    }
};

TEST_F(SChannelShutdownTest, SendsOneCloseAndIsCompleteIfItNeedNotWait) {
    provider.steps = {{SecEOk, "close"}};
    EXPECT_EQ(connection->shutdown(false), 1);
    EXPECT_THAT(provider.calls, ElementsAre("ApplyControlToken", "InitializeSecurityContextA"));
    EXPECT_THAT(provider.controlTypes, ElementsAre(SecBufferToken));
    EXPECT_EQ(provider.controlToken, std::string("\x01\x00\x00\x00", 4));
    EXPECT_EQ(provider.stepCalls[0].flags, 0x8010u);
    EXPECT_TRUE(provider.stepCalls[0].hasContext);
    EXPECT_FALSE(provider.stepCalls[0].hasInput);
    EXPECT_TRUE(connection->IsShuttingDown());
    EXPECT_TRUE(connection->IsShutdownComplete());
    EXPECT_EQ(Extract(), Result(5, "close"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelShutdownTest, TheCloseStandsBehindWaitingOutput) {
    Write("a");
    provider.steps = {{SecEOk, "close"}};
    EXPECT_EQ(connection->shutdown(false), 1);
    EXPECT_EQ(provider.stepCalls[0].room, 256u - 8u);
    EXPECT_EQ(Extract(), Result(13, "<<<<<b>>close"));
}

TEST_F(SChannelShutdownTest, TheCloseIsSentOnlyOnce) {
    provider.steps = {{SecEOk, "close"}};
    connection->shutdown(false);
    Forget();
    EXPECT_EQ(connection->shutdown(false), 1);
    EXPECT_THAT(provider.calls, IsEmpty());
    EXPECT_EQ(Extract(), Result(5, "close"));
}

TEST_F(SChannelShutdownTest, AnyOtherSuccessOfTheCloseCountsAsSent) {
    provider.steps = {{SecIContextExpired, "close"}};
    EXPECT_EQ(connection->shutdown(false), 1);
    EXPECT_EQ(Extract(), Result(5, "close"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelShutdownTest, AFailedControlTokenIsLoggedAtLevel3) {
    provider.controlStatus = SecEInvalidHandle;
    EXPECT_EQ(connection->shutdown(false), -1);
    EXPECT_THAT(logger->Messages(3), ElementsAre("ApplyControlToken failed with error -2146893055"));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_FALSE(connection->IsShuttingDown());
    EXPECT_THAT(provider.stepCalls, IsEmpty());
}

TEST_F(SChannelShutdownTest, ACloseThatDoesNotFitIsTriedAgainFromTheStart) {
    provider.steps = {{SecEBufferTooSmall}, {SecEOk, "close"}};
    EXPECT_EQ(connection->shutdown(false), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_FALSE(connection->IsShuttingDown());
    EXPECT_EQ(connection->shutdown(false), 1);
    EXPECT_EQ(provider.CallsOf("ApplyControlToken"), 2);
    EXPECT_EQ(Extract(), Result(5, "close"));
}

TEST_F(SChannelShutdownTest, AFailedCloseIsLoggedAtLevel3) {
    provider.steps = {{SecEInternalError}};
    EXPECT_EQ(connection->shutdown(true), -1);
    EXPECT_THAT(logger->Messages(3), ElementsAre("InitializeSecurityContextA failed with error -2146893052"));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_FALSE(connection->IsShuttingDown());
}

TEST_F(SChannelShutdownTest, AnIncompleteCloseIsAFailureToo) {
    provider.steps = {{SecEIncompleteMessage}};
    EXPECT_EQ(connection->shutdown(false), -1);
    EXPECT_FALSE(connection->WantsCiphertext());
}

TEST_F(SChannelShutdownTest, AfterThePeersCloseItIsCompleteAtOnceEvenIfItWaits) {
    provider.decryptions = {{SecIContextExpired, {}}};
    Inject("ALT");
    Read();
    EXPECT_FALSE(connection->IsShutdownComplete());
    provider.steps = {{SecEOk, "close"}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_TRUE(connection->IsShutdownComplete());
}

TEST_F(SChannelShutdownTest, WaitingOffersTheInputByteByByteFromNone) {
    Inject("abc");
    provider.steps = {{SecEOk, "close"},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecEOk, "bye"}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab", "abc"));
    for (const auto& call : provider.stepCalls) {
        EXPECT_EQ(call.flags, 0x8010u);
        EXPECT_TRUE(call.hasContext);
    }
    EXPECT_THAT(provider.stepCalls.back().inputTypes, ElementsAre(SecBufferToken, SecBufferEmpty));
    EXPECT_EQ(provider.stepCalls.back().room, 256u - 5u);
    EXPECT_TRUE(connection->IsShutdownComplete());
    EXPECT_EQ(Extract(), Result(8, "closebye"));
    EXPECT_EQ(ExtractUnprocessed(), Result(0, ""));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelShutdownTest, WaitingStopsWithTheOfferThatHoldsTheClose) {
    Inject("abcdef");
    provider.steps = {
        {SecEOk, "close"}, {SecEIncompleteMessage}, {SecEIncompleteMessage}, {SecIContextExpired, ""}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab"));
    EXPECT_EQ(ExtractUnprocessed(), Result(4, "cdef"));
}

TEST_F(SChannelShutdownTest, OnceAllWasOfferedItWantsCiphertextAndWaits) {
    Inject("ab");
    provider.steps = {{SecEOk, "close"}};
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab"));
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_TRUE(connection->IsShuttingDown());
    EXPECT_FALSE(connection->IsShutdownComplete());
    Forget();
    Inject("c");
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab", "abc"));
    EXPECT_EQ(provider.CallsOf("ApplyControlToken"), 0);
}

TEST_F(SChannelShutdownTest, AWaitThatIsGivenUpCompletes) {
    provider.steps = {{SecEOk, "close"}};
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_FALSE(connection->IsShutdownComplete());
    EXPECT_EQ(connection->shutdown(false), 1);
    EXPECT_TRUE(connection->IsShutdownComplete());
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_FALSE(connection->IsShutdownComplete());
}

TEST_F(SChannelShutdownTest, OutputThatDoesNotFitStopsTheWait) {
    Inject("ab");
    provider.steps = {{SecEOk, "close"}, {SecEIncompleteMessage}, {SecEBufferTooSmall}};
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_TRUE(connection->IsOutputBlocked());
    EXPECT_FALSE(connection->WantsCiphertext());
    EXPECT_THAT(Offers(), ElementsAre("", "a"));
}

TEST_F(SChannelShutdownTest, AFailureWhileWaitingIsLoggedAtLevel3) {
    Inject("ab");
    provider.steps = {{SecEOk, "close"}, {SecEDecryptFailure}};
    EXPECT_EQ(connection->shutdown(true), -1);
    EXPECT_THAT(logger->Messages(3), ElementsAre("InitializeSecurityContextA failed with error -2146893008"));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_FALSE(connection->IsShutdownComplete());
}

TEST_F(SChannelShutdownTest, BytesOfAnExtraBufferAreKeptBeforeThoseThatWereNotOffered) {
    Inject("abcdef");
    provider.steps = {{SecEOk, ""},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecEOk, "", 2}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab", "abc"));
    EXPECT_EQ(ExtractUnprocessed(), Result(5, "bcdef"));
}

TEST_F(SChannelShutdownTest, AStepThatNeedsMoreAndMadeNoTokenGoesRoundWithWhatIsLeft) {
    Inject("abcd");
    provider.steps = {{SecEOk, ""},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecIContinueNeeded, "", 1},
                      {SecEIncompleteMessage},
                      {SecIContextExpired, "bye"}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab", "", "b"));
    EXPECT_EQ(ExtractUnprocessed(), Result(2, "cd"));
    EXPECT_EQ(Extract(), Result(3, "bye"));
}

TEST_F(SChannelShutdownTest, AStepThatNeedsMoreAndTookNothingIsOfferedMore) {
    Inject("ab");
    provider.steps = {
        {SecEOk, ""}, {SecIContinueNeeded, ""}, {SecIContinueNeeded, "", 1}, {SecIContinueNeeded, "", 2}};
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_THAT(Offers(), ElementsAre("", "a", "ab"));
    EXPECT_TRUE(connection->WantsCiphertext());
    EXPECT_EQ(ExtractUnprocessed(), Result(2, "ab"));
}

TEST_F(SChannelShutdownTest, AnUnknownSuccessWhileWaitingIsLoggedAtLevel3AndCountsAsThePeersClose) {
    provider.steps = {{SecEOk, "close"}, {0x90399, "bye"}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Unexpected success status from InitializeSecurityContextA"));
    EXPECT_EQ(Extract(), Result(8, "closebye"));
}

TEST_F(SChannelShutdownTest, AStepThatNeedsMoreButMadeATokenCountsAsAnUnknownSuccess) {
    provider.steps = {{SecEOk, ""}, {SecIContinueNeeded, "bye"}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Unexpected success status from InitializeSecurityContextA"));
    EXPECT_EQ(Extract(), Result(3, "bye"));
}

TEST_F(SChannelShutdownTest, WaitingOffersNoMoreThanStandsBehindThePlaintext) {
    provider.decryptions = {
        {SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 3}, {SecBufferExtra, 5, 2}}}};
    Inject("HHoneAL");
    EXPECT_EQ(Read(1), Result(1, "o"));
    provider.steps = {{SecEOk, ""}};
    EXPECT_EQ(connection->shutdown(true), 0);
    EXPECT_THAT(Offers(), ElementsAre("", "A", "AL"));
}

TEST_F(SChannelShutdownTest, WaitingLeavesPlaintextThatWasNotReadYetInPlace) {
    provider.decryptions = {
        {SecEOk, {{SecBufferStreamHeader, 0, 2}, {SecBufferData, 2, 3}, {SecBufferExtra, 5, 4}}}};
    Inject("HHoneALTx");
    EXPECT_EQ(Read(1), Result(1, "o"));
    provider.steps = {{SecEOk, ""},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecEIncompleteMessage},
                      {SecIContextExpired, ""}};
    EXPECT_EQ(connection->shutdown(true), 1);
    EXPECT_THAT(Offers(), ElementsAre("", "A", "AL", "ALT"));
    EXPECT_EQ(Read(), Result(2, "ne"));
    EXPECT_EQ(ExtractUnprocessed(), Result(1, "x"));
}

class SChannelServerShutdownTest : public SChannelFixture {};

TEST_F(SChannelServerShutdownTest, AServerClosesThroughItsOwnFunction) {
    ConnectAsServer();
    provider.steps = {{SecEOk, "close"}, {0x90399, ""}};
    EXPECT_EQ(connection->shutdown(true), 1);
    ASSERT_EQ(provider.stepCalls.size(), 2u);
    EXPECT_EQ(provider.stepCalls[0].function, "AcceptSecurityContext");
    EXPECT_EQ(provider.stepCalls[0].flags, 0x77u);
    EXPECT_THAT(logger->Messages(3), ElementsAre("Unexpected success status from AcceptSecurityContext"));
}

TEST_F(SChannelServerShutdownTest, AServersFailuresNameItsOwnFunction) {
    ConnectAsServer();
    provider.steps = {{SecEInternalError}};
    EXPECT_EQ(connection->shutdown(false), -1);
    EXPECT_THAT(logger->Messages(3), ElementsAre("AcceptSecurityContext failed with error -2146893052"));
}

}  // namespace
}  // namespace Ombry::Tests
