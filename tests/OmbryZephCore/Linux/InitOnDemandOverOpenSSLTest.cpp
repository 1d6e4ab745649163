// The manager that is made on demand, over the engine itself.

#include "OmbryZephCore/ZephSSLClientConnectionManagerInitOnDemand.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSSLClientConnectionManagerInitOnDemand;
using OmbryZephCore::ZephSSLConnectionIf;
using OmbryZephCore::ZephSSLSettings;

/// Runs a session of the manager against a server; what the engine's failing operation said is the result.
bool Connects(ZephSSLClientConnectionManagerInitOnDemand& manager, const TlsServerRecipe& recipe) {
    ZephSSLConnectionIf* client = manager.GetConnection();
    if (client == nullptr) return false;
    TlsServerEnd server(recipe);
    bool failed = false;
    for (bool moved = true; moved && !failed;) {
        const std::string out = Extract(*client);
        server.Put(out);
        const std::string in = server.Take();
        failed = Inject(*client, in) < 0;
        moved = !out.empty() || !in.empty();
    }
    const bool wrote = !failed && Write(*client, "data") == 4;
    manager.ReleaseConnection(client);
    return wrote;
}

TEST(ZephSSLClientConnectionManagerInitOnDemandOverOpenSSLTest, EachModeDecidesAsItSays) {
    TlsServerRecipe known = ServerOf(0);
    CertificateRecipe otherRecipe;
    otherRecipe.key = KeyNamed("rsa2048-other");
    TlsServerRecipe other = ServerOf(0, MakeCertificate(otherRecipe));
    other.key = otherRecipe.key;
    TlsServerRecipe trusted = ServerOf(0, MakeCertificate(SignedByAuthority()));

    const TemporaryPemFile authority(TestAuthority());
    OmbryZephCore::ZephOpenSSLClientContext::ReplaceAuthorities(authority.Path());
    const auto logger = std::make_shared<RecordingLogger>();
    ZephSSLClientConnectionManagerInitOnDemand manager;
    ZephSSLSettings settings;
    settings.m_TargetName = "server.test";
    settings.m_Certificate = Base64Of(DerOf(SelfSigned()));

    settings.m_ValidationMode = 0;
    manager.Configure(settings, logger, false);
    EXPECT_TRUE(Connects(manager, known));
    EXPECT_TRUE(Connects(manager, other));

    settings.m_ValidationMode = 1;
    manager.Configure(settings, logger, false);
    EXPECT_FALSE(Connects(manager, known));
    EXPECT_TRUE(Connects(manager, trusted));

    settings.m_ValidationMode = 2;
    manager.Configure(settings, logger, false);
    EXPECT_TRUE(Connects(manager, known));
    EXPECT_TRUE(Connects(manager, trusted)) << "another certificate with the same key";
    EXPECT_FALSE(Connects(manager, other));
    EXPECT_TRUE(logger->Has(3, "Certificate validation returned failure.  Connection will be closed."));

    settings.m_Certificate = "not base64!";
    manager.Configure(settings, logger, false);
    EXPECT_FALSE(Connects(manager, known));

    settings.m_ValidationMode = 1;
    settings.m_TargetName.clear();
    manager.Configure(settings, logger, false);
    EXPECT_EQ(manager.GetConnection(), nullptr) << "platform validation without a name would check no name";
    OmbryZephCore::ZephOpenSSLClientContext::ReplaceAuthorities("");
}

TEST(ZephSSLClientConnectionManagerInitOnDemandOverOpenSSLTest, ReleaseOfNothingIsHarmless) {
    ZephSSLClientConnectionManagerInitOnDemand manager;
    ZephSSLSettings settings;
    settings.m_ValidationMode = 0;
    manager.Configure(settings, nullptr, false);
    manager.ReleaseConnection(manager.GetConnection());
    manager.ReleaseConnection(nullptr);
}

}  // namespace
}  // namespace Ombry::Tests
