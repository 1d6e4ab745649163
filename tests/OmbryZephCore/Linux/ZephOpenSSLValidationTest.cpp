#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"
#include "OmbryZephCore/ZephOpenSSLServerName.h"
#include "OmbryZephCore/ZephWindowsCertificateValidation.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <thread>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephOpenSSLClientContext;

constexpr const char* Refused = "Certificate validation returned failure.  Connection will be closed.";

/// The platform's validation, with the tests' authority in the place of the platform's.
class ZephOpenSSLPlatformValidationTest : public testing::TestWithParam<ProtocolVersion> {
protected:
    ZephOpenSSLPlatformValidationTest() { ZephOpenSSLClientContext::ReplaceAuthorities(authority.Path()); }
    ~ZephOpenSSLPlatformValidationTest() override { ZephOpenSSLClientContext::ReplaceAuthorities(""); }

    static bool Accepts(const CertificateRecipe& recipe, const std::string& name,
                        int version = GetParam().number) {
        TlsServerRecipe server = ServerOf(version, MakeCertificate(recipe));
        server.key = recipe.key;
        ZephOpenSSLTestPair pair(server, name, false);
        return pair.started == 0 && pair.Handshake();
    }

    TemporaryPemFile authority{TestAuthority()};
};

INSTANTIATE_TEST_SUITE_P(Versions, ZephOpenSSLPlatformValidationTest, testing::ValuesIn(AllVersions()),
                         [](const auto& info) { return info.param.name; });

TEST_P(ZephOpenSSLPlatformValidationTest, ChainToATrustedAuthorityWithTheRightNameIsAccepted) {
    EXPECT_TRUE(Accepts(SignedByAuthority(), "server.test"));
    EXPECT_TRUE(Accepts(SignedByAuthority(), "SERVER.test"));
    EXPECT_TRUE(Accepts(SignedByAuthority(), "server.test.")) << "one trailing dot does not count";
}

TEST_P(ZephOpenSSLPlatformValidationTest, WrongNameIsRefused) {
    for (const char* name :
         {"other.test", "server.test.evil", "a.server.test", "erver.test", "test", "127.0.0.1"}) {
        EXPECT_FALSE(Accepts(SignedByAuthority(), name)) << name;
    }
}

TEST_P(ZephOpenSSLPlatformValidationTest, NameThatWouldSwitchTheCheckOffIsRefusedBeforeAnythingIsSent) {
    TlsServerRecipe server = ServerOf(GetParam().number, MakeCertificate(SignedByAuthority()));
    for (const std::string& name : {std::string(), std::string("."), std::string(".test"), std::string("[]"),
                                    std::string("server.test\0.evil", 17)}) {
        ZephOpenSSLTestPair pair(server, name, false);
        EXPECT_EQ(pair.started, -1) << name;
        EXPECT_EQ(pair.logger->Messages(4).at(0),
                  "The server's certificate cannot be checked against the name '" +
                      OmbryZephCore::ZephOpenSSLServerName(name).m_Text + "'.");
        EXPECT_EQ(Extract(pair.client), "");
        EXPECT_EQ(Write(pair.client, "x"), -1);
    }
}

TEST_P(ZephOpenSSLPlatformValidationTest, AddressIsComparedWithTheAddressesOfTheCertificate) {
    CertificateRecipe recipe = SignedByAuthority();
    recipe.alternativeNames = "IP:127.0.0.1,IP:fe80::1";
    EXPECT_TRUE(Accepts(recipe, "127.0.0.1"));
    EXPECT_TRUE(Accepts(recipe, "fe80::1"));
    EXPECT_TRUE(Accepts(recipe, "[fe80::1]"));
    EXPECT_TRUE(Accepts(recipe, "fe80::1%eth0"));
    EXPECT_TRUE(Accepts(recipe, "[fe80::1%25]"));
    EXPECT_FALSE(Accepts(recipe, "127.0.0.2"));
    EXPECT_FALSE(Accepts(recipe, "fe80::2"));
    recipe.alternativeNames = "DNS:127.0.0.1";
    EXPECT_FALSE(Accepts(recipe, "127.0.0.1")) << "an address written as a name is none";
}

TEST_P(ZephOpenSSLPlatformValidationTest, CommonNameCountsOnlyWithoutAlternativeNames) {
    CertificateRecipe recipe = SignedByAuthority();
    recipe.alternativeNames = "DNS:elsewhere.test";
    EXPECT_FALSE(Accepts(recipe, "server.test"));
}

TEST_P(ZephOpenSSLPlatformValidationTest, WildcardCoversOneWholeLabel) {
    CertificateRecipe recipe = SignedByAuthority();
    recipe.alternativeNames = "DNS:*.zone.test,DNS:part*.other.test";
    EXPECT_TRUE(Accepts(recipe, "a.zone.test"));
    EXPECT_FALSE(Accepts(recipe, "a.b.zone.test"));
    EXPECT_FALSE(Accepts(recipe, "zone.test"));
    EXPECT_FALSE(Accepts(recipe, "partial.other.test"));
}

TEST_P(ZephOpenSSLPlatformValidationTest, SelfSignedExpiredAndFutureCertificatesAreRefused) {
    EXPECT_FALSE(Accepts({}, "server.test"));
    CertificateRecipe expired = SignedByAuthority();
    expired.validFromSeconds = -2 * 86400;
    expired.validToSeconds = -60;
    EXPECT_FALSE(Accepts(expired, "server.test"));
    CertificateRecipe future = SignedByAuthority();
    future.validFromSeconds = 3600;
    EXPECT_FALSE(Accepts(future, "server.test"));
}

TEST_P(ZephOpenSSLPlatformValidationTest, WeakKeyAndWeakSignatureInTheChainAreRefusedEvenWithOldProtocols) {
    CertificateRecipe weakKey = SignedByAuthority();
    weakKey.key = KeyNamed("rsa1024");
    EXPECT_FALSE(Accepts(weakKey, "server.test"));
    CertificateRecipe weakSignature = SignedByAuthority();
    weakSignature.digest = EVP_sha1();
    EXPECT_FALSE(Accepts(weakSignature, "server.test"));
}

TEST_P(ZephOpenSSLPlatformValidationTest, RefusalNamesTheReasonAndSendsNothingMore) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number, MakeCertificate(SignedByAuthority())), "other.test",
                             false);
    pair.server.Put(Extract(pair.client));
    EXPECT_EQ(Inject(pair.client, pair.server.Take()), -1);
    const auto errors = pair.logger->Messages(4);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("certificate verify failed"), std::string::npos) << errors[0];
    EXPECT_NE(errors[0].find("(certificate: hostname mismatch)"), std::string::npos) << errors[0];
    EXPECT_EQ(Extract(pair.client), "");
}

TEST_P(ZephOpenSSLPlatformValidationTest, AuthoritiesFromTheEnvironmentAreNotTrusted) {
    setenv("SSL_CERT_FILE", authority.Path().c_str(), 1);
    ZephOpenSSLClientContext::ReplaceAuthorities("");
    const bool accepted = Accepts(SignedByAuthority(), "server.test");
    unsetenv("SSL_CERT_FILE");
    EXPECT_FALSE(accepted);
}

TEST_P(ZephOpenSSLPlatformValidationTest, ValidatorIsAskedOnTopOfThePlatform) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number, MakeCertificate(SignedByAuthority())), "server.test",
                             false);
    pair.client.SetValidator([](auto*) { return false; });
    EXPECT_FALSE(pair.Handshake());
    EXPECT_TRUE(pair.logger->Has(3, Refused));
}

// --- manual validation ---

class ZephOpenSSLManualValidationTest : public testing::TestWithParam<ProtocolVersion> {};

INSTANTIATE_TEST_SUITE_P(Versions, ZephOpenSSLManualValidationTest, testing::ValuesIn(AllVersions()),
                         [](const auto& info) { return info.param.name; });

CertificateRecipe ExpiredForSomebodyElse() {
    CertificateRecipe recipe;
    recipe.commonName = "somebody.else";
    recipe.alternativeNames = "DNS:somebody.else";
    recipe.validFromSeconds = -2 * 86400;
    recipe.validToSeconds = -86400;
    return recipe;
}

TEST_P(ZephOpenSSLManualValidationTest, WithoutAValidatorNothingChecksTheServer) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number, MakeCertificate(ExpiredForSomebodyElse())));
    EXPECT_TRUE(pair.Handshake());
    ZephOpenSSLTestPair nameless(ServerOf(GetParam().number), "");
    EXPECT_TRUE(nameless.Handshake());
}

TEST_P(ZephOpenSSLManualValidationTest, ValidatorSeesTheServersCertificateOnceAfterTheHandshake) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    std::vector<std::string> seen;
    std::uint32_t encoding = 0;
    pair.client.SetValidator([&](Platform::CertificateContextPointer* ppCertificate) {
        const Platform::CertificateContext& context = **ppCertificate;
        seen.emplace_back(reinterpret_cast<const char*>(context.encoded), context.encodedLength);
        encoding = context.encodingType;
        return true;
    });
    ASSERT_TRUE(pair.Handshake());
    EXPECT_EQ(seen, std::vector<std::string>{DerOf(SelfSigned())});
    EXPECT_EQ(encoding, 0x10001u);
}

TEST_P(ZephOpenSSLManualValidationTest, RefusedServerGetsNoByteOfOursAndTheFinishingOperationFails) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    pair.client.SetValidator([](auto*) { return false; });
    EXPECT_FALSE(pair.Handshake());
    EXPECT_EQ(pair.logger->Messages(3), std::vector<std::string>{Refused});
    EXPECT_EQ(pair.logger->FunctionOf(Refused),
              "OmbryZephCore::ZephOpenSSLConnection::ContinueInitIfNecessary");
    EXPECT_TRUE(pair.logger->Messages(4).empty());
    EXPECT_EQ(Write(pair.client, "secret"), -1);
    std::int32_t result = 0;
    Read(pair.client, result);
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(pair.client.IsShuttingDown());
    EXPECT_EQ(pair.server.received, "");
}

TEST_P(ZephOpenSSLManualValidationTest, ValidatorThatThrowsLeavesAFailedSession) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    pair.client.SetValidator([](auto*) -> bool { throw std::runtime_error("validator"); });
    EXPECT_THROW(pair.Exchange(), std::runtime_error);
    EXPECT_EQ(Write(pair.client, "secret"), -1);
}

TEST_P(ZephOpenSSLManualValidationTest, PinnedKeyDecides) {
    const auto connects = [&](const CertificateRecipe& recipe, const std::string& pin) {
        TlsServerRecipe server = ServerOf(GetParam().number, MakeCertificate(recipe));
        server.key = recipe.key;
        ZephOpenSSLTestPair pair(server, "server.test");
        pair.client.SetValidator(
            OmbryZephCore::ZephWindowsCertificateValidation::CheckPublicKeyCallback(pin));
        return pair.Handshake();
    };
    const std::string pin = Base64Of(DerOf(SelfSigned()));
    EXPECT_TRUE(connects({}, pin));
    EXPECT_TRUE(connects(ExpiredForSomebodyElse(), pin))
        << "the same key, whatever else the certificate says";
    CertificateRecipe otherKey;
    otherKey.key = KeyNamed("rsa2048-other");
    EXPECT_FALSE(connects(otherKey, pin));
    CertificateRecipe otherKind;
    otherKind.key = KeyNamed("ec256");
    EXPECT_FALSE(connects(otherKind, pin));
    EXPECT_FALSE(connects({}, "not base64!"));
    EXPECT_FALSE(connects({}, ""));
    // A short key is the choice of whoever registered the server.
    CertificateRecipe shortKey;
    shortKey.key = KeyNamed("rsa1024");
    EXPECT_TRUE(connects(shortKey, Base64Of(DerOf(MakeCertificate(shortKey)))));
}

// --- what sessions share ---

TEST(ZephOpenSSLClientContextTest, OneContextOfEachKindServesTheWholeProcess) {
    ZephOpenSSLClientContext first(nullptr), second(nullptr), third(nullptr), fourth(nullptr);
    EXPECT_EQ(first.Get(), nullptr);
    ASSERT_EQ(first.Initialize(true), 0u);
    ASSERT_EQ(second.Initialize(true), 0u);
    ASSERT_EQ(third.Initialize(false), 0u);
    ASSERT_EQ(fourth.Initialize(false), 0u);
    EXPECT_NE(first.Get(), nullptr);
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(third.Get(), fourth.Get());
    EXPECT_NE(first.Get(), third.Get());
    EXPECT_FALSE(first.VerifiesServer());
    EXPECT_TRUE(third.VerifiesServer());
    ASSERT_EQ(third.Initialize(true), 0u);
    EXPECT_EQ(third.Get(), first.Get());
    EXPECT_FALSE(third.VerifiesServer());
}

TEST(ZephOpenSSLClientContextTest, SettingsAreTheOnesThatTheSessionsRelyOn) {
    for (const bool manual : {true, false}) {
        ZephOpenSSLClientContext context(nullptr);
        ASSERT_EQ(context.Initialize(manual), 0u);
        SSL_CTX* c = context.Get();
        EXPECT_EQ(SSL_CTX_get_verify_mode(c), manual ? SSL_VERIFY_NONE : SSL_VERIFY_PEER);
        EXPECT_EQ(SSL_CTX_get_min_proto_version(c), TLS1_VERSION);
        EXPECT_EQ(SSL_CTX_get_max_proto_version(c), 0);
        EXPECT_EQ(SSL_CTX_get_security_level(c), 2);
        EXPECT_EQ(SSL_CTX_get_read_ahead(c), 0);
        EXPECT_EQ(SSL_CTX_get_session_cache_mode(c), SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL)
            << "the library knows of no trusted key";
        EXPECT_EQ(SSL_CTX_get_mode(c) & (SSL_MODE_AUTO_RETRY | SSL_MODE_ENABLE_PARTIAL_WRITE |
                                         SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS),
                  SSL_MODE_AUTO_RETRY | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER)
            << "buffers go when the connection rests, not behind each record";
        EXPECT_EQ(SSL_CTX_get_options(c) &
                      (SSL_OP_ALLOW_UNSAFE_LEGACY_RENEGOTIATION | SSL_OP_LEGACY_SERVER_CONNECT |
                       SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TLSv1 | SSL_OP_NO_TLSv1_1 | SSL_OP_NO_TLSv1_2 |
                       SSL_OP_NO_TLSv1_3),
                  0u);
        EXPECT_NE(SSL_CTX_get_options(c) & SSL_OP_NO_COMPRESSION, 0u);
    }
}

TEST(ZephOpenSSLClientContextTest, NoAuthorityIsLoadedForManualValidation) {
    const TemporaryPemFile authority(TestAuthority());
    ZephOpenSSLClientContext::ReplaceAuthorities(authority.Path());
    ZephOpenSSLClientContext manual(nullptr), platform(nullptr);
    ASSERT_EQ(manual.Initialize(true), 0u);
    ASSERT_EQ(platform.Initialize(false), 0u);
    const auto count = [](SSL_CTX* c) {
        return sk_X509_OBJECT_num(X509_STORE_get0_objects(SSL_CTX_get_cert_store(c)));
    };
    EXPECT_EQ(count(manual.Get()), 0);
    EXPECT_EQ(count(platform.Get()), 1);
    ZephOpenSSLClientContext::ReplaceAuthorities("");
}

TEST(ZephOpenSSLClientContextTest, MissingAuthoritiesRefuseEveryServerAndLeaveNoError) {
    ZephOpenSSLClientContext::ReplaceAuthorities("/no/such/file.pem");
    ZephOpenSSLTestPair pair(ServerOf(0, MakeCertificate(SignedByAuthority())), "server.test", false);
    EXPECT_EQ(pair.started, 0);
    EXPECT_EQ(ERR_peek_error(), 0u);
    EXPECT_FALSE(pair.Handshake());
    ZephOpenSSLClientContext::ReplaceAuthorities("");
}

TEST(ZephOpenSSLClientContextTest, SessionsOnManyThreadsShareTheContexts) {
    const TemporaryPemFile authority(TestAuthority());
    ZephOpenSSLClientContext::ReplaceAuthorities(authority.Path());
    const TestCertificate certificate = MakeCertificate(SignedByAuthority());
    std::vector<int> completed(4, 0);
    {
        std::vector<std::jthread> threads;
        for (std::size_t t = 0; t < completed.size(); ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < 5; ++i) {
                    ZephOpenSSLTestPair pair(ServerOf(0, certificate), "server.test", i % 2 == 0);
                    completed[t] += pair.Handshake() ? 1 : 0;
                }
            });
        }
    }
    EXPECT_EQ(completed, std::vector<int>(4, 5));
    ZephOpenSSLClientContext::ReplaceAuthorities("");
}

TEST(ZephOpenSSLClientContextDeathTest, ConfigurationFileOfTheLibraryIsNotRead) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connectUnderConfiguration = [] {
        const auto path = std::filesystem::temp_directory_path() /
                          ("ombry-test-" + std::to_string(std::random_device()()) + ".cnf");
        // Would take every algorithm away from a library that read it.
        std::ofstream(path) << "openssl_conf = all\n[all]\nalg_section = algorithms\n[algorithms]\n"
                               "default_properties = no_such_property=yes\n";
        setenv("OPENSSL_CONF", path.c_str(), 1);
        ZephOpenSSLClientContext context(nullptr);
        const bool initialized = context.Initialize(true) == 0;
        const bool connected = initialized && ZephOpenSSLTestPair(ServerOf(0)).Handshake();
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        std::_Exit(connected ? 0 : 1);
    };
    EXPECT_EXIT(connectUnderConfiguration(), testing::ExitedWithCode(0), "");
}

// --- the manager ---

TEST(ZephOpenSSLClientConnectionManagerTest, GivesNothingBeforeItIsInitialised) {
    OmbryZephCore::ZephOpenSSLClientConnectionManager manager(nullptr, false);
    EXPECT_EQ(manager.GetConnection(), nullptr);
    manager.ReleaseConnection(nullptr);
}

TEST(ZephOpenSSLClientConnectionManagerTest, HandsVerboseNameAndValidatorToEachSession) {
    auto logger = std::make_shared<RecordingLogger>();
    OmbryZephCore::ZephOpenSSLClientConnectionManager manager(logger, true);
    int asked = 0;
    ASSERT_EQ(manager.Initialize("server.test", true, [&](auto*) { return ++asked < 0; }), 0u);
    for (int i = 1; i <= 2; ++i) {
        logger->Clear();
        OmbryZephCore::ZephSSLConnectionIf* client = manager.GetConnection();
        ASSERT_NE(client, nullptr);
        TlsServerEnd server(ServerOf(TLS1_3_VERSION));
        server.Put(Extract(*client));
        EXPECT_EQ(server.ServerName(), "server.test");
        EXPECT_FALSE(logger->Messages(0).empty());
        EXPECT_EQ(Inject(*client, server.Take()), -1);
        EXPECT_EQ(asked, i);
        manager.ReleaseConnection(client);
    }
}

TEST(ZephOpenSSLManagerProviderTest, IsThePlatformsOwn) {
    const auto manager = OmbryZephCore::ZephSSLManagerProvider().MakeManager(nullptr, false);
    ASSERT_NE(manager, nullptr);
    EXPECT_NE(dynamic_cast<OmbryZephCore::ZephOpenSSLClientConnectionManager*>(manager.get()), nullptr);
}

TEST(ZephOpenSSLManagerProviderTest, ManagersTraceOnlyIfTheyAreAskedTo) {
    for (const bool verbose : {false, true}) {
        const auto logger = std::make_shared<RecordingLogger>();
        const auto manager = OmbryZephCore::ZephSSLManagerProvider().MakeManager(logger, verbose);
        ASSERT_EQ(manager->Initialize("server.test", true, {}), 0u);
        auto* const client = manager->GetConnection();
        Extract(*client);
        EXPECT_EQ(logger->Messages(0).size(), verbose ? 1u : 0u);
        manager->ReleaseConnection(client);
    }
}

// --- names ---

TEST(ZephOpenSSLServerNameTest, DecorationsGoAndAddressesAreKnown) {
    const struct {
        std::string target;
        std::string text;
        bool isAddress;
    } cases[] = {{"server.test", "server.test", false},
                 {"server.test.", "server.test", false},
                 {"server.test..", "server.test.", false},
                 {"127.0.0.1", "127.0.0.1", true},
                 {"127.0.0.1.", "127.0.0.1", true},
                 {"127.1", "127.1", false},
                 {"256.0.0.1", "256.0.0.1", false},
                 {"::1", "::1", true},
                 {"[::1]", "::1", true},
                 {"[fe80::1%eth0]", "fe80::1", true},
                 {"fe80::1%eth0", "fe80::1", true},
                 {"name%zone", "name%zone", false},
                 {"[", "[", false},
                 {"[::1", "[::1", false},
                 {"", "", false},
                 {".", "", false},
                 {"[]", "", false}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.target);
        const OmbryZephCore::ZephOpenSSLServerName name(each.target);
        EXPECT_EQ(name.m_Text, each.text);
        EXPECT_EQ(name.m_IsAddress, each.isAddress);
    }
}

TEST(ZephOpenSSLServerNameTest, NamesThatTheLibraryWouldTakeForNoCheckCannotBeChecked) {
    using OmbryZephCore::ZephOpenSSLServerName;
    for (const char* good : {"server.test", "s", "127.0.0.1", "::1"})
        EXPECT_TRUE(ZephOpenSSLServerName(good).CanBeChecked()) << good;
    for (const std::string& bad : {std::string(), std::string("."), std::string("[]"),
                                   std::string(".server.test"), std::string("server\0.test", 12)})
        EXPECT_FALSE(ZephOpenSSLServerName(bad).CanBeChecked()) << bad;
}

}  // namespace
}  // namespace Ombry::Tests
