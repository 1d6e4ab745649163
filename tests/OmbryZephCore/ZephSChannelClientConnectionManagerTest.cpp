#include "OmbryZephCore/ZephSChannelClientConnectionManager.h"
#include "tests/OmbryZephCore/SChannelFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSChannelClientConnectionManager;
using testing::ElementsAre;
using testing::IsEmpty;

class SChannelManagerTest : public SChannelFixture {
protected:
    static std::int32_t InjectInto(OmbryZephCore::ZephSSLConnectionIf* connection, const std::string& bytes) {
        return connection->inject_ciphertext(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                             static_cast<std::int32_t>(bytes.size()));
    }
};

TEST_F(SChannelManagerTest, TouchesNoProviderBeforeItIsInitialized) {
    ZephSChannelClientConnectionManager manager(logger, false);
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SChannelManagerTest, PassesManualValidationOn) {
    ZephSChannelClientConnectionManager manager(logger, false);
    EXPECT_EQ(manager.Initialize("a", true, {}), 0u);
    EXPECT_EQ(provider.credentialData.dwFlags, 0x40001Cu);
    EXPECT_EQ(manager.Initialize("a", false, {}), 0u);
    EXPECT_EQ(provider.credentialData.dwFlags, 0x400010u);
}

TEST_F(SChannelManagerTest, AFailedInitializeReturnsTheErrorAndKeepsTheEarlierName) {
    ZephSChannelClientConnectionManager manager(logger, false);
    ASSERT_EQ(manager.Initialize("first", false, {}), 0u);
    provider.acquireStatus = Platform::SecEInternalError;
    EXPECT_EQ(manager.Initialize("second", false, {}), 0x80090304u);
    provider.steps = {{Platform::SecIContinueNeeded}};
    manager.ReleaseConnection(manager.GetConnection());
    ASSERT_EQ(provider.stepCalls.size(), 1u);
    EXPECT_EQ(provider.stepCalls[0].targetName, "first");
    EXPECT_EQ(provider.stepCalls[0].credentials, nullptr);
}

TEST_F(SChannelManagerTest, GivesConnectionsItsNameAndItsOneSetOfCredentials) {
    ZephSChannelClientConnectionManager manager(logger, false);
    manager.Initialize("server.example", false, {});
    provider.steps = {{Platform::SecIContinueNeeded}, {Platform::SecIContinueNeeded}};
    auto* first = manager.GetConnection();
    auto* second = manager.GetConnection();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(provider.stepCalls[0].targetName, "server.example");
    EXPECT_NE(provider.stepCalls[0].credentials, nullptr);
    EXPECT_EQ(provider.stepCalls[0].credentials, provider.stepCalls[1].credentials);
    EXPECT_EQ(provider.CallsOf("AcquireCredentialsHandleA"), 1);
    manager.ReleaseConnection(first);
    manager.ReleaseConnection(second);
    EXPECT_EQ(provider.CallsOf("DeleteSecurityContext"), 2);
}

TEST_F(SChannelManagerTest, GivesTheProviderNoNameForAnEmptyText) {
    ZephSChannelClientConnectionManager manager(logger, false);
    manager.Initialize("", false, {});
    provider.steps = {{Platform::SecIContinueNeeded}};
    manager.ReleaseConnection(manager.GetConnection());
    EXPECT_EQ(provider.stepCalls[0].targetName, "(null)");
}

TEST_F(SChannelManagerTest, ReturnsNullIfAConnectionCannotStart) {
    ZephSChannelClientConnectionManager manager(logger, false);
    manager.Initialize("a", false, {});
    provider.steps = {{Platform::SecEInternalError}};
    EXPECT_EQ(manager.GetConnection(), nullptr);
    EXPECT_THAT(logger->Messages(4), ElementsAre("InitializeSecurityContextA failed with error -2146893052"));
    EXPECT_THAT(provider.books.Live(), ElementsAre("credentials", "module"));
}

TEST_F(SChannelManagerTest, ReleasingNothingDoesNothing) {
    ZephSChannelClientConnectionManager manager(logger, false);
    manager.ReleaseConnection(nullptr);
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SChannelManagerTest, GivesEachConnectionItsValidator) {
    ZephSChannelClientConnectionManager manager(logger, false);
    int asked = 0;
    manager.Initialize("a", true, [&](Platform::CertificateContextPointer*) {
        ++asked;
        return false;
    });
    provider.steps = {{Platform::SecIContinueNeeded}, {Platform::SecEOk}};
    auto* made = manager.GetConnection();
    EXPECT_EQ(InjectInto(made, "x"), -1);
    EXPECT_EQ(asked, 1);
    manager.ReleaseConnection(made);
}

TEST_F(SChannelManagerTest, AVerboseManagerMakesVerboseConnections) {
    for (bool verbose : {false, true}) {
        ZephSChannelClientConnectionManager manager(logger, verbose);
        manager.Initialize("a", false, {});
        provider.steps = {{Platform::SecIContinueNeeded}};
        auto* made = manager.GetConnection();
        InjectInto(made, "z");
        EXPECT_EQ(logger->Has(0, "7A"), verbose);
        manager.ReleaseConnection(made);
    }
}

}  // namespace
}  // namespace Ombry::Tests
