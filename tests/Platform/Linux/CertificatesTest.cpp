#include "Platform/ICertificates.h"
#include "Platform/Linux/X509.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Platform/Linux/AddressSpace.h"

#include <openssl/err.h>

#include <cerrno>

namespace Ombry::Tests {
namespace {

using Platform::CertificateContext;

class CertificatesTest : public testing::Test {
protected:
    ~CertificatesTest() override { EXPECT_EQ(ERR_peek_error(), 0u); }

    Platform::ICertificates& certificates = Platform::Certificates();
};

// Base64.

TEST_F(CertificatesTest, EncodingOfMoreThanItsLengthCanTellIsRefusedUnread) {
    // The last size whose encoding is counted in 32 bits, and the next.
    const AddressSpace binary(std::size_t{3} * 0x3FFF'FFFF + 1);
    EXPECT_EQ(*certificates.BinaryToBase64(binary.Bytes().first(binary.Bytes().size() - 1), nullptr, 0),
              0xFFFF'FFFCu);
    EXPECT_EQ(certificates.BinaryToBase64(binary.Bytes(), nullptr, 0).Error(), EFBIG);
}

TEST_F(CertificatesTest, RoomThatIsOneTooSmallGivesItsNumber) {
    char text[4];
    EXPECT_EQ(certificates.BinaryToBase64(BytesOf("f"), text, 3).Error(), ERANGE);
    std::uint8_t binary[2];
    EXPECT_EQ(certificates.Base64ToBinary("Zm9v", binary, 2).Error(), ERANGE);
}

// Parsing.

TEST_F(CertificatesTest, ParsedCertificateGivesItsBytes) {
    const std::string der = DerOf(MakeCertificate({}));
    const auto certificate = certificates.CreateCertificate(BytesOf(der));
    ASSERT_TRUE(certificate);
    const CertificateContext& context = (*certificate)->Context();
    EXPECT_EQ(context.encodingType, 0x10001u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(context.encoded), context.encodedLength), der);
    EXPECT_NE(context.encoded, BytesOf(der).data());
}

TEST_F(CertificatesTest, TruncatedOrLengthenedOrForeignBytesAreNoCertificate) {
    const std::string der = DerOf(MakeCertificate({}));
    for (std::size_t length = 0; length < der.size(); ++length) {
        ASSERT_FALSE(certificates.CreateCertificate(BytesOf(der).first(length))) << length;
    }
    EXPECT_FALSE(certificates.CreateCertificate(BytesOf(der + std::string(1, '\0'))));
    EXPECT_FALSE(certificates.CreateCertificate(BytesOf("no certificate")));
    EXPECT_FALSE(certificates.CreateCertificate({}));
    EXPECT_NE(certificates.CreateCertificate({}).Error(), 0);
}

TEST_F(CertificatesTest, CertificateThatWasParsedBeforeDoesNotVouchForAnother) {
    const std::string der = DerOf(MakeCertificate({}));
    ASSERT_TRUE(certificates.CreateCertificate(BytesOf(der)));
    std::string broken = der;
    broken[4] = '\x31';  // the body becomes a set
    EXPECT_FALSE(certificates.CreateCertificate(BytesOf(broken)));
    EXPECT_FALSE(certificates.CreateCertificate({}));
    const auto again = certificates.CreateCertificate(BytesOf(der));
    ASSERT_TRUE(again);
    EXPECT_EQ((*again)->Context().encodedLength, der.size());
    EXPECT_FALSE(certificates.CreateCertificate(BytesOf(broken)));
}

// Comparing public keys.

/// A DER element of that tag; short lengths only.
std::string Element(char tag, const std::string& content) {
    return std::string{tag, static_cast<char>(content.size())} + content;
}

TEST_F(CertificatesTest, KeyIsTakenFromItsPlaceAndFromNoOtherKindOfElement) {
    const char Sequence = 0x30, OctetString = 0x04, Integer = 0x02, Boolean = 0x01, Null = 0x05;
    const std::string before = Element(Integer, "\x01") + Element(Sequence, "") + Element(Sequence, "") +
                               Element(Sequence, "") + Element(Sequence, "");
    const std::string key = Element(Integer, "\x07");
    const auto isKnownByItself = [&](const std::string& der) {
        return certificates.EqualPublicKeys(ContextOf(der), ContextOf(der));
    };
    const auto with = [&](const std::string& element) {
        return Element(Sequence, Element(Sequence, before + element));
    };
    EXPECT_TRUE(isKnownByItself(with(Element(Sequence, key))));
    EXPECT_TRUE(isKnownByItself(with(Element(Sequence, key) + Element(Null, ""))));
    EXPECT_FALSE(isKnownByItself(with("")));
    EXPECT_FALSE(isKnownByItself(with(Element(OctetString, key))));
    EXPECT_FALSE(isKnownByItself(with(Element(Null, ""))));
    EXPECT_FALSE(isKnownByItself(with(Element(Boolean, "\xff"))));
    // The body must be a sequence too, whatever its bytes would say.
    const std::string body = Element(Sequence, before + Element(Sequence, key));
    EXPECT_FALSE(isKnownByItself(Element(Sequence, Element(OctetString, body))));
    EXPECT_FALSE(isKnownByItself(Element(OctetString, body)));
    EXPECT_FALSE(isKnownByItself(Element(Sequence, body) + "x"));
}

TEST_F(CertificatesTest, RenewedCertificateWithTheSameKeyIsEqual) {
    const std::string old = DerOf(MakeCertificate({}));
    CertificateRecipe recipe;
    recipe.serial = 2;
    recipe.commonName = "other.test";
    recipe.validToSeconds = -10;
    const std::string renewed = DerOf(MakeCertificate(recipe));
    ASSERT_NE(old, renewed);
    EXPECT_TRUE(certificates.EqualPublicKeys(ContextOf(old), ContextOf(renewed)));
}

TEST_F(CertificatesTest, SameSubjectWithAnotherKeyIsNotEqual) {
    const std::string one = DerOf(MakeCertificate({}));
    CertificateRecipe recipe;
    for (const std::string key : {"rsa2048-other", "rsa1024", "ec256"}) {
        recipe.key = KeyNamed(key);
        const std::string other = DerOf(MakeCertificate(recipe));
        EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(one), ContextOf(other))) << key;
        EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(other), ContextOf(one))) << key;
        EXPECT_TRUE(certificates.EqualPublicKeys(ContextOf(other), ContextOf(other))) << key;
    }
}

TEST_F(CertificatesTest, KeyIsFoundInCertificateThatLeavesItsVersionOut) {
    TestCertificate old = MakeCertificate({});
    while (X509_get_ext_count(old.get()) > 0)
        X509_EXTENSION_free(X509_delete_ext(old.get(), 0));
    X509_set_version(old.get(), X509_VERSION_1);
    ASSERT_GT(X509_sign(old.get(), KeyNamed("rsa2048").get(), EVP_sha256()), 0);
    const std::string first = DerOf(old);
    ASSERT_TRUE(certificates.CreateCertificate(BytesOf(first)));
    const std::string same = DerOf(MakeCertificate({}));
    CertificateRecipe recipe;
    recipe.key = KeyNamed("rsa2048-other");
    const std::string other = DerOf(MakeCertificate(recipe));
    EXPECT_TRUE(certificates.EqualPublicKeys(ContextOf(first), ContextOf(same)));
    EXPECT_TRUE(certificates.EqualPublicKeys(ContextOf(same), ContextOf(first)));
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(first), ContextOf(other)));
}

TEST_F(CertificatesTest, TruncatedOrLengthenedBytesAreEqualToNothing) {
    const std::string der = DerOf(MakeCertificate({}));
    for (std::size_t length = 0; length < der.size(); ++length) {
        const std::string cut = der.substr(0, length);
        ASSERT_FALSE(certificates.EqualPublicKeys(ContextOf(cut), ContextOf(der))) << length;
        ASSERT_FALSE(certificates.EqualPublicKeys(ContextOf(cut), ContextOf(cut))) << length;
    }
    const std::string longer = der + std::string(1, '\0');
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(longer), ContextOf(der)));
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(longer), ContextOf(longer)));
}

TEST_F(CertificatesTest, WhatCannotBeParsedIsEqualToNothing) {
    const std::string good = DerOf(MakeCertificate({}));
    const std::string bad = "bad";
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(good), ContextOf(bad)));
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(bad), ContextOf(good)));
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(bad), ContextOf(bad)));
    EXPECT_FALSE(certificates.EqualPublicKeys({}, {}));
}

TEST_F(CertificatesTest, WhatIsLongerThanTheLibraryCountsIsNoCertificateAndNotRead) {
    const std::string good = DerOf(MakeCertificate({}));
    AddressSpace text(std::size_t{1} << 31);
    const CertificateContext context{Platform::CertificateEncoding, text.Bytes().data(), 1u << 31};
    EXPECT_FALSE(certificates.EqualPublicKeys(context, ContextOf(good)));
    EXPECT_FALSE(certificates.EqualPublicKeys(ContextOf(good), context));
    EXPECT_EQ(Platform::Linux::ParseDer(text.Bytes()), nullptr);
    // To the library a length that it cannot count would mean "up to the NUL".
    text.BeginWith(Platform::Linux::EncodePem(MakeCertificate({}).get()) + '\0');
    EXPECT_EQ(Platform::Linux::ParsePem(text.Text()), nullptr);
    EXPECT_NE(Platform::Linux::ParsePem(text.Text().substr(0, text.Text().size() - 1)), nullptr);
}

}  // namespace
}  // namespace Ombry::Tests
