#include "Platform/IInspection.h"
#include "Platform/Linux/CertificateOutline.h"
#include "Platform/Linux/X509.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Platform/Linux/AddressSpace.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace Ombry::Tests {
namespace {

using Platform::Linux::CertificateOutline;
using Platform::Linux::StoredCertificate;

class CertificateOutlineTest : public testing::Test {
protected:
    ~CertificateOutlineTest() override { EXPECT_EQ(ERR_peek_error(), 0u); }

    static std::span<const std::uint8_t> Bytes(const std::string& text) {
        return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
    }
    static CertificateRecipe Recipe(const std::string& key = "ec256") {
        CertificateRecipe recipe;
        recipe.key = KeyNamed(key);
        return recipe;
    }
    /// What the library's own parser makes of the bytes: their encoding, or nothing.
    static std::string ByTheLibrary(const std::string& der) {
        const auto certificate = Platform::Linux::ParseDer(Bytes(der));
        return certificate ? Platform::Linux::EncodeDer(certificate.get()) : "";
    }
    static std::string ByOutline(const std::string& der) {
        const auto outline = CertificateOutline::FromDer(Bytes(der));
        return outline ? outline->Encoded() : "";
    }
    static std::string StoredBy(const std::string& pem) {
        const auto stored = StoredCertificate::FromPem(pem);
        return stored ? stored->encoded + stored->alias.value_or(" no alias") : "";
    }
    static std::string StoredByTheLibrary(const std::string& pem) {
        const auto certificate = Platform::Linux::ParsePem(pem);
        if (!certificate) return "";
        int length = 0;
        const auto* const alias = X509_alias_get0(certificate.get(), &length);
        return Platform::Linux::EncodeDer(certificate.get()) +
               (alias ? std::string(reinterpret_cast<const char*>(alias), static_cast<std::size_t>(length))
                      : " no alias");
    }
};

TEST_F(CertificateOutlineTest, TakesAndRefusesWhatTheLibrarysParserDoesWhateverByteIsBent) {
    const std::string der = DerOf(MakeCertificate(SignedByAuthority(Recipe())));
    EXPECT_EQ(ByOutline(der), der);
    int refused = 0;
    for (std::size_t at = 0; at < der.size(); ++at) {
        for (const int mask : {0x01, 0x20, 0x80, 0xff}) {
            std::string bent = der;
            bent[at] = static_cast<char>(bent[at] ^ mask);
            const std::string expected = ByTheLibrary(bent);
            refused += expected.empty();
            ASSERT_EQ(ByOutline(bent), expected) << at << " " << mask;
        }
        ASSERT_EQ(ByOutline(der.substr(0, at)), "") << at;
    }
    EXPECT_GT(refused, 100);
    EXPECT_EQ(ByOutline(der + "x"), "");
}

TEST_F(CertificateOutlineTest, EntryOfAStoreIsReadAsTheLibrarysParserDoesWhateverByteIsBent) {
    const auto certificate = MakeCertificate(Recipe());
    EXPECT_EQ(StoredBy(Platform::Linux::EncodePem(certificate.get())), DerOf(certificate) + " no alias");
    X509_add1_trust_object(certificate.get(), OBJ_nid2obj(NID_server_auth));
    X509_add1_reject_object(certificate.get(), OBJ_nid2obj(NID_client_auth));
    X509_alias_set1(certificate.get(), reinterpret_cast<const unsigned char*>("name"), 4);
    X509_keyid_set1(certificate.get(), reinterpret_cast<const unsigned char*>("key"), 3);
    const std::string pem = Platform::Linux::EncodePem(certificate.get());
    EXPECT_EQ(StoredBy(pem), DerOf(certificate) + "name");
    int refused = 0;
    for (std::size_t at = 0; at < pem.size(); ++at) {
        std::string bent = pem;
        bent[at] = static_cast<char>(bent[at] ^ 1);
        const std::string expected = StoredByTheLibrary(bent);
        refused += expected.empty();
        ASSERT_EQ(StoredBy(bent), expected) << at;
    }
    EXPECT_GT(refused, 100);
    EXPECT_EQ(StoredBy(""), "");
}

TEST_F(CertificateOutlineTest, CommonKeysAreToldAsTheLibraryTellsThem) {
    std::vector<TestKey> keys{KeyNamed("rsa1024"), KeyNamed("rsa2048"), KeyNamed("ec256")};
    for (const char* curve : {"P-384", "P-521", "secp256k1"})
        keys.emplace_back(EVP_EC_gen(curve), EVP_PKEY_free);
    keys.emplace_back(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free);
    std::size_t common = 0;
    for (const TestKey& key : keys) {
        CertificateRecipe recipe;
        recipe.key = key;
        recipe.issuer = TestAuthority();
        recipe.issuerKey = KeyNamed("rsa2048-authority");
        const std::string der = DerOf(MakeCertificate(recipe));
        const auto told = CertificateOutline::FromDer(Bytes(der))->CommonKey();
        common += told.has_value();
        if (told) {
            EXPECT_EQ(told->type, EVP_PKEY_get0_type_name(key.get()));
            EXPECT_EQ(told->bits, EVP_PKEY_get_bits(key.get()));
        }
        const auto facts = Platform::Inspection().Facts(ContextOf(der));
        EXPECT_EQ(facts->keyType, EVP_PKEY_get0_type_name(key.get()));
        EXPECT_EQ(facts->keyBits, EVP_PKEY_get_bits(key.get()));
    }
    EXPECT_EQ(common, 5u);
}

TEST_F(CertificateOutlineTest, WhatIsLongerThanTheLibraryCountsIsNotRead) {
    AddressSpace text(std::size_t{1} << 31);
    EXPECT_FALSE(CertificateOutline::FromDer(text.Bytes()));
    text.BeginWith(Platform::Linux::EncodePem(MakeCertificate(Recipe()).get()) + '\0');
    EXPECT_FALSE(StoredCertificate::FromPem(text.Text()));
}

}  // namespace
}  // namespace Ombry::Tests
