#include "Platform/ICertificates.h"
#include "tests/Fakes/CertificateBytes.h"
#include "tests/Fakes/FixedCertificates.h"

#include <gtest/gtest.h>

#include <string_view>

namespace Ombry::Tests {
namespace {

using Platform::CertificateContext;

class CertificatesContractTest : public testing::Test {
protected:
    bool Equal(const std::string& left, const std::string& right) {
        return certificates.EqualPublicKeys(ContextOf(left), ContextOf(right));
    }

    Platform::ICertificates& certificates = Platform::Certificates();
    const std::string first = FixedCertificates::DerOf(FixedCertificates::RsaCertificate);
    const std::string renewed = FixedCertificates::DerOf(FixedCertificates::RenewedRsaCertificate);
    const std::string otherKey = FixedCertificates::DerOf(FixedCertificates::OtherRsaCertificate);
    const std::string elliptic = FixedCertificates::DerOf(FixedCertificates::EcCertificate);
};

TEST_F(CertificatesContractTest, ParsedCertificateGivesItsBytes) {
    for (const std::string& der : {first, elliptic}) {
        const auto certificate = certificates.CreateCertificate(BytesOf(der));
        ASSERT_TRUE(certificate) << certificate.Error();
        const CertificateContext& context = (*certificate)->Context();
        EXPECT_EQ(context.encodingType, Platform::CertificateEncoding);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(context.encoded), context.encodedLength), der);
        EXPECT_NE(context.encoded, BytesOf(der).data());
    }
}

TEST_F(CertificatesContractTest, TruncatedOrLengthenedOrForeignBytesAreNoCertificate) {
    const std::string der = first;
    for (std::size_t length = 0; length < der.size(); ++length) {
        const auto cut = certificates.CreateCertificate(BytesOf(der).first(length));
        ASSERT_FALSE(cut) << length;
        ASSERT_NE(cut.Error(), 0) << length;
    }
    EXPECT_FALSE(certificates.CreateCertificate(BytesOf(der + std::string(1, '\0'))));
    EXPECT_FALSE(certificates.CreateCertificate(BytesOf("no certificate")));
}

TEST_F(CertificatesContractTest, LengthThatIsLongerThanWhatFollowsIsNoCertificate) {
    for (const std::string text : {"\x30", "\x30\x05", "\x30\x80", "\x30\x84\xFF\xFF\xFF\xFF", "\x30\x85",
                                   "\x30\x88\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}) {
        EXPECT_FALSE(certificates.CreateCertificate(BytesOf(text))) << testing::PrintToString(text);
        EXPECT_FALSE(Equal(text, text)) << testing::PrintToString(text);
    }
}

TEST_F(CertificatesContractTest, RenewedCertificateWithTheSameKeyIsEqual) {
    EXPECT_TRUE(Equal(first, renewed));
    EXPECT_TRUE(Equal(renewed, first));
    EXPECT_TRUE(Equal(elliptic, elliptic));
}

TEST_F(CertificatesContractTest, SameSubjectWithAnotherKeyIsNotEqual) {
    EXPECT_FALSE(Equal(first, otherKey));
    EXPECT_FALSE(Equal(otherKey, renewed));
    EXPECT_FALSE(Equal(first, elliptic));
    EXPECT_FALSE(Equal(first, FixedCertificates::DerOf(FixedCertificates::OtherExponentCertificate)));
    EXPECT_FALSE(Equal(elliptic, FixedCertificates::DerOf(FixedCertificates::MirroredEcCertificate)));
}

TEST_F(CertificatesContractTest, SamePointOnAnotherCurveIsAnotherKey) {
    std::string other = elliptic;
    const std::string curve = "\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07";  // P-256
    const std::size_t at = other.find(curve);
    ASSERT_NE(at, std::string::npos);
    other[at + curve.size() - 1] = 6;  // another of the same family

    ASSERT_TRUE(Equal(other, other));
    EXPECT_FALSE(Equal(elliptic, other));
}

TEST_F(CertificatesContractTest, WhatCannotBeParsedIsEqualToNothing) {
    const std::string bad = "bad";
    const std::string longer = first + std::string(1, '\0');
    for (const std::string& broken : {bad, longer}) {
        EXPECT_FALSE(Equal(first, broken));
        EXPECT_FALSE(Equal(broken, first));
        EXPECT_FALSE(Equal(broken, broken));
    }
    EXPECT_FALSE(certificates.EqualPublicKeys({}, {}));
}

}  // namespace
}  // namespace Ombry::Tests
