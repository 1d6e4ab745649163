#include "tests/OmbryZephCore/SChannelFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;
using testing::IsEmpty;

class SChannelLifeTest : public SChannelFixture {};

TEST_F(SChannelLifeTest, ASecondSessionTakesNeitherNameNorRoomNorSizesFromTheFirst) {
    Connect();
    provider.maxToken = 100;
    provider.steps = {{SecEOk}};
    EXPECT_EQ(connection->InitializeAsClient(&credentials, nullptr), 0);
    EXPECT_EQ(provider.stepCalls.back().room, 100u);
    EXPECT_EQ(provider.stepCalls.back().targetName, "(null)");
    EXPECT_EQ(Write("x"), 0) << "without stream sizes nothing can be written";
    EXPECT_TRUE(connection->IsOutputBlocked());
}

TEST_F(SChannelLifeTest, ASecondInitializeEndsTheFirstSessionCompletely) {
    Connect();
    Write("x");
    provider.decryptions = {{SecIContextExpired, {{SecBufferExtra, 0, 2}}}};
    Inject("ab");
    Read();
    ASSERT_TRUE(connection->IsShuttingDown());
    Forget();
    StartClient("again");
    EXPECT_THAT(provider.calls,
                ElementsAre("DeleteSecurityContext", "ReleaseModule", "LoadModule SCHANNEL.DLL",
                            "FindEntryPoint InitSecurityInterfaceA", "CallEntryPoint",
                            "QuerySecurityPackageInfoA Microsoft Unified Security Protocol Provider",
                            "FreeContextBuffer", "InitializeSecurityContextA"));
    EXPECT_FALSE(provider.stepCalls[0].hasContext);
    EXPECT_EQ(provider.stepCalls[0].room, 256u);
    EXPECT_FALSE(connection->IsShuttingDown());
    EXPECT_EQ(ExtractUnprocessed().first, 0);
    EXPECT_EQ(Extract().second, "again");
}

TEST_F(SChannelLifeTest, ASecondInitializeForgetsPlaintextThatWasNotRead) {
    Connect();
    provider.decryptions = {{SecEOk, {{SecBufferData, 0, 4}}}};
    Inject("data");
    ASSERT_EQ(Read(1).second, "d");
    StartClient();
    Inject("ab");
    EXPECT_EQ(provider.stepCalls.back().offered, "ab");
}

TEST_F(SChannelLifeTest, ASecondInitializeForgetsARenegotiationACloseAndBlockedOutput) {
    Connect();
    provider.steps = {{SecIContinueNeeded, "rehello"}, {SecEOk, "close"}, {SecEBufferTooSmall}};
    ASSERT_EQ(connection->request_renegotiate(), 1);
    ASSERT_EQ(connection->shutdown(false), 1);
    ASSERT_EQ(connection->request_renegotiate(), 0);
    ASSERT_TRUE(connection->IsOutputBlocked());
    StartClient();
    EXPECT_FALSE(connection->IsOutputBlocked());
    EXPECT_FALSE(connection->IsShuttingDown());
    EXPECT_FALSE(connection->IsShutdownComplete());
    provider.steps = {{SecEOk}};
    EXPECT_EQ(Inject("server"), 6);
    EXPECT_EQ(Write("x"), 1);
}

TEST_F(SChannelLifeTest, ASecondInitializeAcceptsAgainAfterARefusal) {
    connection->SetValidator([](CertificateContextPointer*) { return false; });
    StartClient();
    provider.steps = {{SecEOk}};
    EXPECT_EQ(Inject("server"), -1);
    connection->SetValidator([](CertificateContextPointer*) { return true; });
    Connect();
    EXPECT_EQ(Write("x"), 1);
}

TEST_F(SChannelLifeTest, DestructionDeletesTheContextBeforeItReleasesTheLibrary) {
    StartClient();
    Forget();
    connection.reset();
    EXPECT_THAT(provider.calls, ElementsAre("DeleteSecurityContext", "ReleaseModule"));
}

TEST_F(SChannelLifeTest, AConnectionThatWasNeverStartedIsHarmless) {
    EXPECT_EQ(connection->request_renegotiate(), -1);
    EXPECT_EQ(connection->shutdown(true), -1);
    EXPECT_EQ(Inject("x"), 0);
    EXPECT_EQ(Extract().first, 0);
    EXPECT_EQ(Read().first, 0);
    EXPECT_EQ(Write("x"), 0);
    connection.reset();
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SChannelLifeTest, NeedsNoLogger) {
    connection = std::make_unique<OmbryZephCore::ZephSChannelConnection>(nullptr);
    connection->SetVerbose(true);
    StartClient();
    provider.steps = {{SecEInvalidToken}};
    EXPECT_EQ(Inject("x"), -1);
}

}  // namespace
}  // namespace Ombry::Tests
