#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gtest/gtest.h>
#include <openssl/conf.h>
#include <openssl/ssl.h>

#include <cstdlib>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephOpenSSLClientContext;

/// What the shared contexts decide by themselves, apart from the list of suites that they offer: each of the
/// two has to hold alone.
class ZephOpenSSLPolicyTest : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        ASSERT_EQ(context.Initialize(GetParam()), 0u);
        decide = SSL_CTX_get_security_callback(context.Get());
        ASSERT_NE(decide, nullptr);
    }

    bool Allows(int operation, int bits, int nid = 0, const SSL_CIPHER* cipher = nullptr) const {
        return decide(nullptr, context.Get(), operation, bits, nid, const_cast<SSL_CIPHER*>(cipher),
                      nullptr) == 1;
    }

    const SSL_CIPHER* Cipher(int id) const {
        const unsigned char wire[2] = {static_cast<unsigned char>(id >> 8), static_cast<unsigned char>(id)};
        return SSL_CIPHER_find(server.Get(), wire);
    }

    ZephOpenSSLClientContext context{nullptr};
    TlsServerEnd server{ServerOf(0)};
    int (*decide)(const SSL*, const SSL_CTX*, int, int, int, void*, void*) = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Kinds, ZephOpenSSLPolicyTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "Manual" : "Platform"; });

TEST_P(ZephOpenSSLPolicyTest, VersionsFromTls10OnAreAllowed) {
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION, TLS1_2_VERSION, TLS1_3_VERSION})
        EXPECT_TRUE(Allows(SSL_SECOP_VERSION, 0, version)) << version;
    for (const int version : {SSL2_VERSION, SSL3_VERSION, TLS1_VERSION - 1})
        EXPECT_FALSE(Allows(SSL_SECOP_VERSION, 256, version)) << version;
}

TEST_P(ZephOpenSSLPolicyTest, SuitesNeedACipherOf128BitsAndAServerThatIsAuthenticated) {
    for (const int operation :
         {SSL_SECOP_CIPHER_SUPPORTED, SSL_SECOP_CIPHER_SHARED, SSL_SECOP_CIPHER_CHECK}) {
        SCOPED_TRACE(operation);
        for (const int good : {0x002F, 0xC02F, 0x1301}) {
            ASSERT_NE(Cipher(good), nullptr) << good;
            EXPECT_TRUE(Allows(operation, 112, 0, Cipher(good))) << good;
            EXPECT_FALSE(Allows(operation, 111, 0, Cipher(good))) << good;
        }
        for (const int bad : {0x003B /* no cipher */, 0x0034 /* anonymous */, 0xC018 /* anonymous */}) {
            ASSERT_NE(Cipher(bad), nullptr) << bad;
            EXPECT_FALSE(Allows(operation, 256, 0, Cipher(bad))) << bad;
        }
    }
}

TEST_P(ZephOpenSSLPolicyTest, CompressionIsNeverAllowed) {
    EXPECT_FALSE(Allows(SSL_SECOP_COMPRESSION, 256));
}

TEST_P(ZephOpenSSLPolicyTest, HandshakeMayBeSignedWithSha1ButWithNothingWeaker) {
    for (const int operation :
         {SSL_SECOP_SIGALG_SUPPORTED, SSL_SECOP_SIGALG_SHARED, SSL_SECOP_SIGALG_CHECK}) {
        EXPECT_TRUE(Allows(operation, 64)) << operation;
        EXPECT_FALSE(Allows(operation, 63)) << operation;
    }
}

TEST_P(ZephOpenSSLPolicyTest, TicketsAreAllowed_WhichHaveNoStrengthOfTheirOwn) {
    EXPECT_TRUE(Allows(SSL_SECOP_TICKET, 0));
}

TEST_P(ZephOpenSSLPolicyTest, EverythingElseNeeds112Bits) {
    for (const int operation : {SSL_SECOP_TMP_DH, SSL_SECOP_CURVE_SUPPORTED, SSL_SECOP_CURVE_SHARED,
                                SSL_SECOP_CURVE_CHECK, SSL_SECOP_EE_KEY}) {
        EXPECT_TRUE(Allows(operation, 112)) << operation;
        EXPECT_FALSE(Allows(operation, 111)) << operation;
    }
}

TEST_P(ZephOpenSSLPolicyTest, ListOfSuitesHoldsNoneThatTheDecisionWouldHaveToRefuse) {
    STACK_OF(SSL_CIPHER)* const listed = SSL_CTX_get_ciphers(context.Get());
    ASSERT_GT(sk_SSL_CIPHER_num(listed), 0);
    for (int i = 0; i < sk_SSL_CIPHER_num(listed); ++i) {
        const SSL_CIPHER* const cipher = sk_SSL_CIPHER_value(listed, i);
        EXPECT_TRUE(Allows(SSL_SECOP_CIPHER_SUPPORTED, 112, 0, cipher)) << SSL_CIPHER_get_name(cipher);
    }
}

TEST(ZephOpenSSLSuiteTest, OrderOfTls13IsTheClientsUnlessTheServerHasOne) {
    const auto agreed = [](std::uint64_t serverOptions, const char* serverOrder) {
        TlsServerRecipe recipe = ServerOf(TLS1_3_VERSION);
        recipe.options = serverOptions;
        ZephOpenSSLTestPair pair(recipe);
        SSL_set_ciphersuites(pair.server.Get(), serverOrder);
        EXPECT_TRUE(pair.Handshake());
        return std::string(SSL_get_cipher_name(pair.server.Get()));
    };
    const std::string light = "TLS_AES_128_GCM_SHA256", heavy = "TLS_AES_256_GCM_SHA384",
                      other = "TLS_CHACHA20_POLY1305_SHA256";
    const std::string reversed = other + ":" + heavy + ":" + light;
    EXPECT_EQ(agreed(0, reversed.c_str()), light);
    EXPECT_EQ(agreed(0, (other + ":" + heavy).c_str()), heavy);
    EXPECT_EQ(agreed(0, other.c_str()), other);
    EXPECT_EQ(agreed(SSL_OP_CIPHER_SERVER_PREFERENCE, reversed.c_str()), other);
    EXPECT_EQ(agreed(SSL_OP_CIPHER_SERVER_PREFERENCE, (heavy + ":" + light).c_str()), heavy);
}

TEST(ZephOpenSSLKeyExchangeTest, ShortDiffieHellmanGroupIsRefusedThoughNothingElseIsChecked) {
    const auto connects = [](const std::string& key) {
        CertificateRecipe recipe;
        recipe.key = KeyNamed(key);
        TlsServerRecipe server = ServerOf(TLS1_2_VERSION, MakeCertificate(recipe));
        server.key = recipe.key;
        server.ciphers = "DHE-RSA-AES128-SHA:@SECLEVEL=0";
        ZephOpenSSLTestPair pair(server);
        return pair.Handshake();
    };
    // The server takes a group as strong as its key.
    EXPECT_TRUE(connects("rsa2048"));
    EXPECT_FALSE(connects("rsa1024"));
}

// --- a process whose TLS library was configured by somebody else ---

TEST(ZephOpenSSLPolicyDeathTest, ConfigurationThatAnotherUserOfTheLibraryLoadedChangesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connectUnderConfiguration = [] {
        std::string problems;
        {
            const TemporaryDirectory directory;
            const std::string path = directory.Write(
                "all.cnf",
                "openssl_conf = all\n[all]\nssl_conf = modules\n[modules]\nsystem_default = "
                "system\n[system]\n"
                "MinProtocol = TLSv1.3\nMaxProtocol = TLSv1.3\nCipherString = ALL:aNULL:eNULL:@SECLEVEL=0\n"
                "Ciphersuites = TLS_AES_128_CCM_8_SHA256\nProtocol = -TLSv1,-TLSv1.1\n"
                "Options = "
                "NoRenegotiation,UnsafeLegacyRenegotiation,UnsafeLegacyServerConnect,Compression\n");
            if (CONF_modules_load_file(path.c_str(), nullptr, 0) != 1) problems += "not loaded;";
        }
        const std::shared_ptr<SSL_CTX> others(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        if (SSL_CTX_get_security_level(others.get()) != 0) problems += "not in force;";
        for (const bool manual : {true, false}) {
            ZephOpenSSLClientContext context(nullptr);
            if (context.Initialize(manual) != 0) problems += "no context;";
            SSL_CTX* const c = context.Get();
            const std::uint64_t wrong = SSL_OP_ALLOW_UNSAFE_LEGACY_RENEGOTIATION |
                                        SSL_OP_LEGACY_SERVER_CONNECT | SSL_OP_NO_RENEGOTIATION |
                                        SSL_OP_NO_SSL_MASK;
            if ((SSL_CTX_get_options(c) & wrong) != 0) problems += "options;";
            if ((SSL_CTX_get_options(c) & SSL_OP_NO_COMPRESSION) == 0) problems += "compression;";
            if (SSL_CTX_get_security_level(c) != 2) problems += "level;";
        }
        for (const ProtocolVersion& version : AllVersions()) {
            TlsServerRecipe recipe = ServerOf(version.number);
            ZephOpenSSLTestPair pair(recipe);
            // The server's own context obeys the configuration too.
            SSL_clear_options(pair.server.Get(), SSL_OP_NO_SSL_MASK);
            SSL_set_ciphersuites(pair.server.Get(), "TLS_AES_128_GCM_SHA256");
            if (!pair.Handshake()) problems += std::string("no ") + version.name + ";";
        }
        fprintf(stderr, "problems: '%s'\n", problems.c_str());
        std::_Exit(0);
    };
    EXPECT_EXIT(connectUnderConfiguration(), testing::ExitedWithCode(0), "problems: ''");
}

}  // namespace
}  // namespace Ombry::Tests
