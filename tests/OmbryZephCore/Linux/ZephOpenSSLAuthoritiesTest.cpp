#include "tests/Fakes/Linux/OpenSSLFaults.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <filesystem>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephOpenSSLClientContext;

/// Whether a session that leaves the check to the platform goes through.
bool Accepts(const TlsServerRecipe& recipe, const std::string& name = "server.test") {
    ZephOpenSSLTestPair pair(recipe, name, false);
    return pair.started == 0 && pair.Handshake();
}

TlsServerRecipe ServerWith(const CertificateRecipe& recipe,
                           const std::vector<TestCertificate>& intermediates = {}) {
    TlsServerRecipe server = ServerOf(0, MakeCertificate(recipe));
    server.key = recipe.key;
    server.intermediates = intermediates;
    return server;
}

/// An authority that another one vouches for, or one of its own.
CertificateRecipe AuthorityNamed(const std::string& name, const CertificateRecipe* issuer = nullptr) {
    CertificateRecipe recipe;
    recipe.commonName = name;
    recipe.alternativeNames.clear();
    recipe.key = KeyNamed("ec256-" + name);
    recipe.authority = true;
    if (issuer != nullptr) {
        recipe.issuer = MakeCertificate(*issuer);
        recipe.issuerKey = issuer->key;
    }
    return recipe;
}

CertificateRecipe SignedBy(const CertificateRecipe& issuer, CertificateRecipe recipe = {}) {
    recipe.issuer = MakeCertificate(issuer);
    recipe.issuerKey = issuer.key;
    return recipe;
}

// --- chains ---

class ZephOpenSSLChainTest : public testing::Test {
protected:
    ZephOpenSSLChainTest() { ZephOpenSSLClientContext::ReplaceAuthorities(file.Path()); }
    ~ZephOpenSSLChainTest() override { ZephOpenSSLClientContext::ReplaceAuthorities(""); }

    const CertificateRecipe root = AuthorityNamed("root");
    const CertificateRecipe first = AuthorityNamed("first", &root);
    const CertificateRecipe second = AuthorityNamed("second", &first);
    const CertificateRecipe third = AuthorityNamed("third", &second);
    const TestCertificate firstCertificate = MakeCertificate(first);
    const TestCertificate secondCertificate = MakeCertificate(second);
    const TestCertificate thirdCertificate = MakeCertificate(third);
    TemporaryPemFile file{MakeCertificate(root)};
};

TEST_F(ZephOpenSSLChainTest, ServersIntermediateAuthoritiesLeadToTheTrustedOne) {
    EXPECT_TRUE(Accepts(ServerWith(SignedBy(root))));
    EXPECT_TRUE(Accepts(ServerWith(SignedBy(first), {firstCertificate})));
    EXPECT_TRUE(
        Accepts(ServerWith(SignedBy(third), {thirdCertificate, secondCertificate, firstCertificate})));
}

TEST_F(ZephOpenSSLChainTest, ChainWithAGapIsRefused) {
    EXPECT_FALSE(Accepts(ServerWith(SignedBy(first))));
    EXPECT_FALSE(Accepts(ServerWith(SignedBy(second), {secondCertificate})));
}

TEST_F(ZephOpenSSLChainTest, CertificateThatIsNoAuthorityVouchesForNobody) {
    CertificateRecipe server = SignedBy(root);
    server.key = KeyNamed("ec256-server");
    CertificateRecipe forged = SignedBy(server);
    EXPECT_FALSE(Accepts(ServerWith(forged, {MakeCertificate(server)})));
}

TEST_F(ZephOpenSSLChainTest, ChainToAnAuthorityThatTheServerBringsAlongIsRefused) {
    CertificateRecipe impostor = AuthorityNamed("root");
    impostor.key = KeyNamed("ec256-attacker");
    EXPECT_FALSE(Accepts(ServerWith(SignedBy(impostor), {MakeCertificate(impostor)})));
}

TEST_F(ZephOpenSSLChainTest, ExpiredIntermediateAuthorityIsRefused) {
    CertificateRecipe expired = first;
    expired.validFromSeconds = -2 * 86400;
    expired.validToSeconds = -60;
    EXPECT_FALSE(Accepts(ServerWith(SignedBy(expired), {MakeCertificate(expired)})));
}

TEST_F(ZephOpenSSLChainTest, AuthorityThatIsNotTheTopOfItsChainIsNoneByItself) {
    const TemporaryPemFile intermediate(firstCertificate);
    ZephOpenSSLClientContext::ReplaceAuthorities(intermediate.Path());
    EXPECT_FALSE(Accepts(ServerWith(SignedBy(first), {firstCertificate})));
}

TEST_F(ZephOpenSSLChainTest, CertificateForAnotherPurposeIsRefused) {
    CertificateRecipe recipe = SignedBy(root);
    recipe.extendedKeyUsage = "clientAuth";
    EXPECT_FALSE(Accepts(ServerWith(recipe)));
    recipe.extendedKeyUsage = "serverAuth";
    EXPECT_TRUE(Accepts(ServerWith(recipe)));
}

TEST_F(ZephOpenSSLChainTest, CommonNameCountsWhereThereAreNoAlternativeNames) {
    CertificateRecipe recipe = SignedBy(root);
    recipe.alternativeNames.clear();
    EXPECT_TRUE(Accepts(ServerWith(recipe)));
    EXPECT_FALSE(Accepts(ServerWith(recipe), "other.test"));
}

// --- the platform's authorities ---

/// Puts an authority where the library finds it in a directory: under the hash of its name.
void PutInto(const std::string& directory, const TestCertificate& authority) {
    char name[16];
    std::snprintf(name, sizeof name, "%08lx.0",
                  X509_NAME_hash_ex(X509_get_subject_name(authority.get()), nullptr, nullptr, nullptr));
    const TemporaryPemFile file(authority);
    std::filesystem::copy_file(file.Path(), std::filesystem::path(directory) / name);
}

class ZephOpenSSLPlatformAuthoritiesTest : public testing::Test {
protected:
    void SetUp() override { PutInto(directory.Path(), TestAuthority()); }
    ~ZephOpenSSLPlatformAuthoritiesTest() override { ZephOpenSSLClientContext::ReplaceAuthorities(""); }

    static bool AcceptsWith(const std::string& authoritiesFile, const std::string& authoritiesDirectory) {
        const DefaultAuthorities replaced(authoritiesFile, authoritiesDirectory);
        ZephOpenSSLClientContext::ReplaceAuthorities("");
        const bool accepted = Accepts(ServerWith(SignedByAuthority()));
        EXPECT_EQ(ERR_peek_error(), 0u);
        return accepted;
    }

    const TemporaryPemFile file{TestAuthority()};
    TemporaryDirectory directory;
    const std::string nowhere = directory.Path() + "/nowhere";
};

TEST_F(ZephOpenSSLPlatformAuthoritiesTest, EitherOfThePlatformsTwoPlacesIsEnough) {
    EXPECT_TRUE(AcceptsWith(file.Path(), nowhere));
    EXPECT_TRUE(AcceptsWith(nowhere, directory.Path()));
    EXPECT_TRUE(AcceptsWith(file.Path(), directory.Path()));
}

TEST_F(ZephOpenSSLPlatformAuthoritiesTest, WithNeitherPlaceEveryServerIsRefusedAndNoErrorIsLeft) {
    EXPECT_FALSE(AcceptsWith(nowhere, nowhere));
    EXPECT_FALSE(AcceptsWith("", ""));
    const DefaultAuthorities replaced(nowhere, nowhere);
    ZephOpenSSLClientContext::ReplaceAuthorities("");
    ASSERT_EQ(ZephOpenSSLClientContext(nullptr).Initialize(false), 0u);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(ZephOpenSSLPlatformAuthoritiesTest, NamesInTheEnvironmentPlayNoPart) {
    setenv("SSL_CERT_FILE", file.Path().c_str(), 1);
    setenv("SSL_CERT_DIR", directory.Path().c_str(), 1);
    const bool accepted = AcceptsWith(nowhere, nowhere);
    setenv("SSL_CERT_FILE", nowhere.c_str(), 1);
    setenv("SSL_CERT_DIR", nowhere.c_str(), 1);
    const bool refused = !AcceptsWith(file.Path(), nowhere) || !AcceptsWith(nowhere, directory.Path());
    unsetenv("SSL_CERT_FILE");
    unsetenv("SSL_CERT_DIR");
    EXPECT_FALSE(accepted);
    EXPECT_FALSE(refused);
}

TEST_F(ZephOpenSSLPlatformAuthoritiesTest, EveryAuthorityOfThisMachineIsTrusted) {
    ZephOpenSSLClientContext::ReplaceAuthorities("");
    ZephOpenSSLClientContext context(nullptr);
    ASSERT_EQ(context.Initialize(false), 0u);
    X509_STORE* const trusted = SSL_CTX_get_cert_store(context.Get());

    const std::shared_ptr<BIO> bundle(BIO_new_file(X509_get_default_cert_file(), "r"), BIO_free);
    std::size_t authorities = 0;
    while (bundle) {
        const TestCertificate authority(PEM_read_bio_X509(bundle.get(), nullptr, nullptr, nullptr),
                                        X509_free);
        if (!authority) break;
        ++authorities;
        const std::shared_ptr<X509_STORE_CTX> check(X509_STORE_CTX_new(), X509_STORE_CTX_free);
        X509_STORE_CTX_init(check.get(), trusted, nullptr, nullptr);
        const std::shared_ptr<X509_OBJECT> found(
            X509_STORE_CTX_get_obj_by_subject(check.get(), X509_LU_X509,
                                              X509_get_subject_name(authority.get())),
            X509_OBJECT_free);
        EXPECT_NE(found, nullptr);
    }
    ERR_clear_error();
    // A machine without a bundle has nothing to load at once.
    EXPECT_EQ(sk_X509_OBJECT_num(X509_STORE_get0_objects(trusted)) > 0, authorities > 0);
}

}  // namespace
}  // namespace Ombry::Tests
