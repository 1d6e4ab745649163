#include "OmbryZephCore/ZephSChannelClientContext.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSecurityProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSChannelClientContext;
using testing::ElementsAre;
using testing::IsEmpty;

class SChannelClientContextTest : public testing::Test {
protected:
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ScriptedSecurityProvider provider;
    Platform::Testing::Replace<Platform::ISecurityProvider> replaced{provider};
};

TEST_F(SChannelClientContextTest, HasNoCredentialsBeforeItIsInitialized) {
    ZephSChannelClientContext context(logger);
    EXPECT_EQ(context.GetCredentials(), nullptr);
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SChannelClientContextTest, AcquiresOutboundCredentialsOfTheTlsPackage) {
    ZephSChannelClientContext context(logger);
    EXPECT_EQ(context.Initialize(false), 0u);
    EXPECT_EQ(provider.calls.front(), "LoadModule SCHANNEL.DLL");
    EXPECT_EQ(provider.acquireArguments, "Microsoft Unified Security Protocol Provider use 2");
    ASSERT_NE(context.GetCredentials(), nullptr);
    EXPECT_EQ(context.GetCredentials()->dwUpper, 7u);
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SChannelClientContextTest, FillsEveryFieldOfTheCredentialData) {
    ZephSChannelClientContext context(logger);
    context.Initialize(false);
    const Platform::SCHANNEL_CRED& data = provider.credentialData;
    EXPECT_EQ(data.dwVersion, 4u);
    EXPECT_EQ(data.cCreds, 0u);
    EXPECT_EQ(data.paCred, nullptr);
    EXPECT_EQ(data.hRootStore, nullptr);
    EXPECT_EQ(data.cMappers, 0u);
    EXPECT_EQ(data.aphMappers, nullptr);
    EXPECT_EQ(data.cSupportedAlgs, 0u);
    EXPECT_EQ(data.palgSupportedAlgs, nullptr);
    EXPECT_EQ(data.grbitEnabledProtocols, 0x3FC0u);
    EXPECT_EQ(data.dwMinimumCipherStrength, 128u);
    EXPECT_EQ(data.dwMaximumCipherStrength, 0u);
    EXPECT_EQ(data.dwSessionLifespan, 0u);
    EXPECT_EQ(data.dwFlags, 0x400010u);
    EXPECT_EQ(data.dwCredFormat, 0u);
}

TEST_F(SChannelClientContextTest, ManualValidationTurnsChainAndNameChecksOff) {
    ZephSChannelClientContext context(logger);
    context.Initialize(true);
    EXPECT_EQ(provider.credentialData.dwFlags, 0x40001Cu);
    EXPECT_EQ(provider.credentialData.grbitEnabledProtocols, 0x3FC0u);
    EXPECT_EQ(provider.credentialData.dwMinimumCipherStrength, 128u);
}

TEST_F(SChannelClientContextTest, AFailureIsLoggedAndUnloads) {
    provider.acquireStatus = Platform::SecEInternalError;
    ZephSChannelClientContext context(logger);
    EXPECT_EQ(context.Initialize(false), 0x80090304u);
    EXPECT_THAT(logger->Messages(4), ElementsAre("AcquireCredentialsHandleA failed with error -2146893052"));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(context.GetCredentials(), nullptr);
    EXPECT_EQ(provider.CallsOf("FreeCredentialsHandle"), 0);
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SChannelClientContextTest, AMissingLibraryIsReportedAsThePlatformsError) {
    provider.loadErrors["SCHANNEL.DLL"] = 126;
    ZephSChannelClientContext context(logger);
    EXPECT_EQ(context.Initialize(false), 126u);
    EXPECT_EQ(context.GetCredentials(), nullptr);
    EXPECT_EQ(provider.calls.size(), 1u);
}

TEST_F(SChannelClientContextTest, ASecondInitializeDropsTheFirstCredentialsBeforeItLoads) {
    ZephSChannelClientContext context(logger);
    context.Initialize(false);
    provider.calls.clear();
    EXPECT_EQ(context.Initialize(true), 0u);
    EXPECT_THAT(
        provider.calls,
        ElementsAre("FreeCredentialsHandle", "ReleaseModule", "LoadModule SCHANNEL.DLL",
                    "FindEntryPoint InitSecurityInterfaceA", "CallEntryPoint", "AcquireCredentialsHandleA"));
}

TEST_F(SChannelClientContextTest, AFailedSecondInitializeLeavesNoCredentials) {
    ZephSChannelClientContext context(logger);
    context.Initialize(false);
    provider.acquireStatus = Platform::SecEInternalError;
    EXPECT_NE(context.Initialize(false), 0u);
    EXPECT_EQ(context.GetCredentials(), nullptr);
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SChannelClientContextTest, DestructionFreesTheCredentialsBeforeTheLibrary) {
    { ZephSChannelClientContext(logger).Initialize(false); }
    ASSERT_GE(provider.calls.size(), 2u);
    EXPECT_EQ(provider.calls[provider.calls.size() - 2], "FreeCredentialsHandle");
    EXPECT_EQ(provider.calls.back(), "ReleaseModule");
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

}  // namespace
}  // namespace Ombry::Tests
