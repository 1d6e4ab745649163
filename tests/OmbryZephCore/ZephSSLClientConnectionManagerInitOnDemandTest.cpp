#include "OmbryZephCore/ZephSSLClientConnectionManagerInitOnDemand.h"
#include "tests/Fakes/FakeSSLConnection.h"
#include "tests/Fakes/FixedCertificates.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSSLClientConnectionManagerInitOnDemand;
using OmbryZephCore::ZephSSLConnectionIf;
using OmbryZephCore::ZephSSLSettings;

struct Journal {
    std::vector<std::string> lines;
    std::vector<OmbryZephCore::ZephCertificateValidator> validators;
    std::vector<std::string> sessionScopes;
    std::shared_ptr<LibraryLogger::ILogger> logger;
    std::uint32_t initializeResult = 0;
    ZephSSLConnectionIf* connection = nullptr;
};

class JournalManager : public OmbryZephCore::ZephSSLInitializableManagerIf {
public:
    explicit JournalManager(Journal& journal) : journal(journal) {}
    ~JournalManager() override { journal.lines.push_back("deleted"); }
    std::uint32_t Initialize(const std::string& targetName, bool bManualValidation,
                             const OmbryZephCore::ZephCertificateValidator& validator) override {
        journal.lines.push_back("Initialize '" + targetName + "'" +
                                (bManualValidation ? " manual" : " platform") +
                                (validator ? " validator" : ""));
        journal.validators.push_back(validator);
        return journal.initializeResult;
    }
    void SetSessionScope(const std::string& scope) override { journal.sessionScopes.push_back(scope); }
    ZephSSLConnectionIf* GetConnection() override {
        journal.lines.push_back("GetConnection");
        return journal.connection;
    }
    void ReleaseConnection(ZephSSLConnectionIf* pConnection) override {
        journal.lines.push_back(pConnection == journal.connection ? "ReleaseConnection"
                                                                  : "ReleaseConnection other");
    }

private:
    Journal& journal;
};

class JournalProvider : public OmbryZephCore::ZephSSLManagerProviderIf {
public:
    explicit JournalProvider(Journal& journal) : journal(journal) {}
    std::unique_ptr<OmbryZephCore::ZephSSLInitializableManagerIf> MakeManager(
        const std::shared_ptr<LibraryLogger::ILogger>& logger, bool bVerbose) override {
        journal.lines.push_back(bVerbose ? "make verbose" : "make");
        journal.logger = logger;
        if (fails) return nullptr;
        return std::make_unique<JournalManager>(journal);
    }

    bool fails = false;

private:
    Journal& journal;
};

class ZephSSLClientConnectionManagerInitOnDemandTest : public testing::Test {
protected:
    static ZephSSLSettings Settings(std::int32_t mode, std::int32_t role = 1) {
        ZephSSLSettings settings;
        settings.m_TargetName = "server.test";
        settings.m_ValidationMode = mode;
        settings.m_Role = role;
        return settings;
    }

    ZephSSLClientConnectionManagerInitOnDemandTest() { journal.connection = &connection; }

    Journal journal;
    JournalProvider provider{journal};
    Platform::Testing::Replace<OmbryZephCore::ZephSSLManagerProviderIf> replaced{provider};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    FakeSSLConnection connection;
    ZephSSLClientConnectionManagerInitOnDemand manager;
    using Lines = std::vector<std::string>;
};

TEST(ZephSSLSettingsTest, DefaultsAreClientWithPlatformValidation) {
    const ZephSSLSettings settings;
    EXPECT_EQ(settings.m_TargetName, "");
    EXPECT_EQ(settings.m_ValidationMode, 1);
    EXPECT_EQ(settings.m_Certificate, "");
    EXPECT_EQ(settings.m_Role, 1);
    EXPECT_EQ(settings.m_Unused1 + settings.m_Unused2, "");
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, NothingIsMadeUntilAConnectionIsAskedFor) {
    manager.Configure(Settings(1), logger, false);
    manager.ReleaseConnection(&connection);
    EXPECT_EQ(journal.lines, Lines{});
    EXPECT_EQ(manager.GetConnection(), &connection);
    EXPECT_EQ(journal.lines, (Lines{"make", "Initialize 'server.test' platform", "GetConnection"}));
    EXPECT_EQ(journal.logger, logger);
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, ManagerIsMadeOnce) {
    manager.Configure(Settings(1), logger, true);
    manager.GetConnection();
    manager.GetConnection();
    manager.ReleaseConnection(&connection);
    EXPECT_EQ(journal.lines, (Lines{"make verbose", "Initialize 'server.test' platform", "GetConnection",
                                    "GetConnection", "ReleaseConnection"}));
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest,
       EveryModeButOneValidatesManuallyAndOnlyModeTwoHasAValidator) {
    const struct {
        std::int32_t mode;
        std::string initialize;
    } cases[] = {{0, "Initialize 'server.test' manual"},
                 {1, "Initialize 'server.test' platform"},
                 {2, "Initialize 'server.test' manual validator"},
                 {3, "Initialize 'server.test' manual"},
                 {-1, "Initialize 'server.test' manual"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mode);
        manager.Configure(Settings(each.mode), logger, false);
        journal.lines.clear();
        EXPECT_EQ(manager.GetConnection(), &connection);
        EXPECT_EQ(journal.lines, (Lines{"make", each.initialize, "GetConnection"}));
    }
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, ValidatorOfModeTwoChecksTheConfiguredKey) {
    const auto asks = [&](const char* certificate) {
        const std::string der = FixedCertificates::DerOf(certificate);
        const Platform::CertificateContext context{Platform::CertificateEncoding,
                                                   reinterpret_cast<const std::uint8_t*>(der.data()),
                                                   static_cast<std::uint32_t>(der.size())};
        Platform::CertificateContextPointer pContext = &context;
        return journal.validators.back()(&pContext);
    };
    ZephSSLSettings settings = Settings(2);
    settings.m_Certificate = FixedCertificates::RsaCertificate;
    manager.Configure(settings, logger, false);
    manager.GetConnection();
    EXPECT_TRUE(asks(FixedCertificates::RsaCertificate));
    EXPECT_FALSE(asks(FixedCertificates::OtherRsaCertificate));

    settings.m_Certificate.clear();
    manager.Configure(settings, logger, false);
    manager.GetConnection();
    EXPECT_FALSE(asks(FixedCertificates::RsaCertificate)) << "no certificate configured rejects every server";
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, SessionsMayBeResumedWhereAKeyIsTrusted) {
    for (const std::int32_t mode : {0, 1, 2}) {
        ZephSSLSettings settings = Settings(mode);
        settings.m_SessionScope = "scope of " + std::to_string(mode);
        manager.Configure(settings, logger, false);
        manager.GetConnection();
    }
    EXPECT_EQ(journal.sessionScopes, Lines{"scope of 2"});
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, RoleThreeGetsNoManagerAndAnyOtherRoleIsAClient) {
    for (const std::int32_t role : {1, 0, 2, 4, -1, 1000}) {
        SCOPED_TRACE(role);
        manager.Configure(Settings(0, role), logger, false);
        EXPECT_EQ(manager.GetConnection(), &connection);
    }
    manager.Configure(Settings(0, 3), logger, false);
    journal.lines.clear();
    EXPECT_EQ(manager.GetConnection(), nullptr);
    manager.ReleaseConnection(&connection);
    EXPECT_EQ(journal.lines, Lines{});
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, FailedInitializeDeletesTheManagerAndIsTriedAgain) {
    manager.Configure(Settings(1), logger, false);
    journal.initializeResult = 126;
    EXPECT_EQ(manager.GetConnection(), nullptr);
    EXPECT_EQ(journal.lines, (Lines{"make", "Initialize 'server.test' platform", "deleted"}));
    manager.ReleaseConnection(&connection);
    EXPECT_EQ(journal.lines.size(), 3u);
    journal.initializeResult = 0;
    EXPECT_EQ(manager.GetConnection(), &connection);
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, ProviderWithoutAManagerGivesNull) {
    provider.fails = true;
    manager.Configure(Settings(1), logger, false);
    EXPECT_EQ(manager.GetConnection(), nullptr);
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest, ManagerThatHasNoConnectionGivesNullAndStays) {
    manager.Configure(Settings(1), logger, false);
    journal.connection = nullptr;
    EXPECT_EQ(manager.GetConnection(), nullptr);
    EXPECT_EQ(manager.GetConnection(), nullptr);
    EXPECT_EQ(journal.lines,
              (Lines{"make", "Initialize 'server.test' platform", "GetConnection", "GetConnection"}));
}

TEST_F(ZephSSLClientConnectionManagerInitOnDemandTest,
       ConfigureDeletesTheManagerAndTheNextUsesTheNewSettings) {
    manager.Configure(Settings(1), logger, false);
    manager.GetConnection();
    journal.lines.clear();
    ZephSSLSettings other = Settings(0);
    other.m_TargetName = "other.test";
    manager.Configure(other, nullptr, true);
    EXPECT_EQ(journal.lines, Lines{"deleted"});
    manager.GetConnection();
    EXPECT_EQ(journal.lines,
              (Lines{"deleted", "make verbose", "Initialize 'other.test' manual", "GetConnection"}));
    EXPECT_EQ(journal.logger, nullptr);
}

}  // namespace
}  // namespace Ombry::Tests
