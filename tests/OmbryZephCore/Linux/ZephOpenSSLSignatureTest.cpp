#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <set>

namespace Ombry::Tests {
namespace {

// What a server may sign its handshake with.

const std::string Sha256WithRsa("\x04\x01", 2);
const std::string Sha1WithRsa("\x02\x01", 2);
const std::string Sha1WithEcdsa("\x02\x03", 2);
const std::string Sha1WithDsa("\x02\x02", 2);

TlsServerRecipe SigningWith(const std::string& signatures, int version = TLS1_2_VERSION) {
    TlsServerRecipe recipe = ServerOf(version);
    recipe.ciphers = "ECDHE:DHE:@SECLEVEL=0";  // suites in which the server signs
    recipe.signatures = signatures;
    return recipe;
}

/// The list of a ClientHello, two bytes for each algorithm.
std::string OfferedSignatures(const std::string& hello) {
    const std::size_t at = hello.find(std::string("\x00\x0d\x00", 3));
    const auto length = static_cast<std::uint8_t>(hello.at(at + 5));
    return hello.substr(at + 6, length);
}

TEST(ZephOpenSSLSignatureTest, HelloOffersNoSha1) {
    ZephOpenSSLTestPair pair(ServerOf(0));
    const std::string offered = OfferedSignatures(Extract(pair.client));
    std::set<std::string> algorithms;
    for (std::size_t i = 0; i < offered.size(); i += 2)
        algorithms.insert(offered.substr(i, 2));
    EXPECT_TRUE(algorithms.count(Sha256WithRsa));
    for (const std::string& weak : {Sha1WithRsa, Sha1WithEcdsa, Sha1WithDsa})
        EXPECT_FALSE(algorithms.count(weak));
}

TEST(ZephOpenSSLSignatureTest, Tls12ServerThatCanOnlySignWithSha1IsRefused) {
    ZephOpenSSLTestPair pair(SigningWith("RSA+SHA1"));
    EXPECT_FALSE(pair.Handshake());
    EXPECT_EQ(Write(pair.client, "secret"), -1);
}

TEST(ZephOpenSSLSignatureTest, Tls12ServerThatSignsWithSha1UnaskedIsRefused) {
    for (const std::string signatures : {"RSA+SHA256", "RSA+SHA1"}) {
        SCOPED_TRACE(signatures);
        ZephOpenSSLTestPair pair(SigningWith(signatures));
        std::string hello = Extract(pair.client);
        // On the way its offer of SHA-256 becomes one of SHA-1. What the server signs does not cover it.
        const std::size_t list = hello.find(OfferedSignatures(hello));
        const std::size_t at = hello.find(Sha256WithRsa, list);
        if (signatures == "RSA+SHA1") hello.replace(at, 2, Sha1WithRsa);
        pair.server.Put(hello);
        ASSERT_FALSE(pair.server.failed);
        const std::string flight = pair.server.Take();
        EXPECT_EQ(Inject(pair.client, flight),
                  signatures == "RSA+SHA1" ? -1 : static_cast<std::int32_t>(flight.size()));
    }
}

TEST(ZephOpenSSLSignatureTest, EveryOtherAlgorithmOfTls12IsTaken) {
    for (const std::string signatures : {"RSA+SHA224", "RSA+SHA256", "RSA+SHA384", "RSA+SHA512",
                                         "RSA-PSS+SHA256", "RSA-PSS+SHA384", "RSA-PSS+SHA512"}) {
        ZephOpenSSLTestPair pair(SigningWith(signatures));
        EXPECT_TRUE(pair.Handshake()) << signatures;
    }
}

TEST(ZephOpenSSLSignatureTest, EarlierVersionsSignWithSha1AndAreTaken) {
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION}) {
        for (const char* const key : {"rsa2048", "ec256"}) {
            CertificateRecipe certificate;
            certificate.key = KeyNamed(key);
            TlsServerRecipe recipe = SigningWith("", version);
            recipe.certificate = MakeCertificate(certificate);
            recipe.key = certificate.key;
            ZephOpenSSLTestPair pair(recipe);
            EXPECT_TRUE(pair.Handshake()) << version << ' ' << key;
        }
    }
}

}  // namespace
}  // namespace Ombry::Tests
