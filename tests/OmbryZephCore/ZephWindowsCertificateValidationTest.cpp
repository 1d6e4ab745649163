#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephWindowsCertificateValidation.h"
#include "tests/Fakes/FixedCertificates.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace FixedCertificates;
using OmbryZephCore::ZephWindowsCertificateValidation::CheckPublicKeyCallback;

bool AcceptsKey(const std::string& expected, const std::string& serverDer) {
    const Platform::CertificateContext context{Platform::CertificateEncoding,
                                               reinterpret_cast<const std::uint8_t*>(serverDer.data()),
                                               static_cast<std::uint32_t>(serverDer.size())};
    Platform::CertificateContextPointer pContext = &context;
    return CheckPublicKeyCallback(expected)(&pContext);
}

TEST(CheckPublicKeyCallbackTest, TheVeryCertificateIsAccepted) {
    EXPECT_TRUE(AcceptsKey(RsaCertificate, DerOf(RsaCertificate)));
}

TEST(CheckPublicKeyCallbackTest, Base64WithLineEndsIsAccepted) {
    const std::string text = RsaCertificate;
    for (const char* end : {"\n", "\r\n"}) {
        std::string lines;
        for (std::size_t i = 0; i < text.size(); i += 64)
            lines += text.substr(i, 64) + end;
        EXPECT_TRUE(AcceptsKey(lines, DerOf(RsaCertificate)));
    }
}

TEST(CheckPublicKeyCallbackTest, OnlyTheKeyCountsNotDatesNamesIssuerOrSerial) {
    EXPECT_TRUE(AcceptsKey(RsaCertificate, DerOf(RenewedRsaCertificate)));
    EXPECT_TRUE(AcceptsKey(RenewedRsaCertificate, DerOf(RsaCertificate)));
}

TEST(CheckPublicKeyCallbackTest, SameNameWithANewKeyIsRejected) {
    EXPECT_FALSE(AcceptsKey(RsaCertificate, DerOf(OtherRsaCertificate)));
}

TEST(CheckPublicKeyCallbackTest, KeyOfAnotherKindIsRejected) {
    EXPECT_FALSE(AcceptsKey(RsaCertificate, DerOf(EcCertificate)));
    EXPECT_FALSE(AcceptsKey(EcCertificate, DerOf(RsaCertificate)));
    EXPECT_TRUE(AcceptsKey(EcCertificate, DerOf(EcCertificate)));
}

TEST(CheckPublicKeyCallbackTest, KeyThatDiffersInItsLastBytesOnlyIsRejected) {
    EXPECT_FALSE(AcceptsKey(RsaCertificate, DerOf(OtherExponentCertificate)));
    EXPECT_FALSE(AcceptsKey(OtherExponentCertificate, DerOf(RsaCertificate)));
    EXPECT_TRUE(AcceptsKey(OtherExponentCertificate, DerOf(OtherExponentCertificate)));

    EXPECT_FALSE(AcceptsKey(EcCertificate, DerOf(MirroredEcCertificate)));
    EXPECT_FALSE(AcceptsKey(MirroredEcCertificate, DerOf(EcCertificate)));
    EXPECT_TRUE(AcceptsKey(MirroredEcCertificate, DerOf(MirroredEcCertificate)));
}

TEST(CheckPublicKeyCallbackTest, WhatCannotBeDecodedOrParsedRejectsEveryServer) {
    const std::string good = RsaCertificate;
    const std::string der = DerOf(RsaCertificate);
    const std::string bad[] = {"",
                               " \r\n",
                               "not base64!",
                               good + "*",
                               good.substr(0, good.size() - 1),
                               good.substr(0, 400),
                               Base64Of("no certificate"),
                               Base64Of(der + '\0'),
                               Base64Of(der.substr(0, der.size() - 1)),
                               "-----BEGIN CERTIFICATE-----\n" + good + "\n-----END CERTIFICATE-----\n"};
    for (const std::string& text : bad) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(AcceptsKey(text, DerOf(RsaCertificate)));
    }
}

TEST(CheckPublicKeyCallbackTest, ServerWithoutACertificateIsRejected) {
    const CheckPublicKeyCallback callback(RsaCertificate);
    EXPECT_FALSE(callback(nullptr));
    Platform::CertificateContextPointer none = nullptr;
    EXPECT_FALSE(callback(&none));
    EXPECT_FALSE(AcceptsKey(RsaCertificate, "no certificate"));
    EXPECT_FALSE(AcceptsKey(RsaCertificate, ""));
}

TEST(CheckPublicKeyCallbackTest, CopyChecksAsTheOriginalDoes) {
    const CheckPublicKeyCallback original(RsaCertificate);
    const CheckPublicKeyCallback copy = original;
    const std::string der = DerOf(RsaCertificate);
    const Platform::CertificateContext context{Platform::CertificateEncoding,
                                               reinterpret_cast<const std::uint8_t*>(der.data()),
                                               static_cast<std::uint32_t>(der.size())};
    Platform::CertificateContextPointer pContext = &context;
    EXPECT_TRUE(copy(&pContext));
    EXPECT_TRUE(original(&pContext));
    EXPECT_EQ(pContext, &context) << "the certificate stays the caller's";
}

/// Forwards to the real group, writes down the calls, and fails the one that is named.
class FailingCertificates : public Platform::ICertificates {
public:
    Platform::ValueOr<std::unique_ptr<Platform::ICertificateStore>> OpenStore(
        Platform::StoreLocation location, Platform::StoreAccess access, std::wstring_view name) override {
        calls.push_back("open");
        return real.OpenStore(location, access, name);
    }
    Platform::ValueOr<std::unique_ptr<Platform::ICertificate>> CreateCertificate(
        std::span<const std::uint8_t> encoded) override {
        calls.push_back("create");
        if (failing == "create") return Platform::Result::Failure(5);
        if (empty == "create") return std::unique_ptr<Platform::ICertificate>();
        return real.CreateCertificate(encoded);
    }
    bool EqualPublicKeys(const Platform::CertificateContext& left,
                         const Platform::CertificateContext& right) override {
        calls.push_back("compare");
        return failing != "compare" && real.EqualPublicKeys(left, right);
    }
    Platform::ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                                    std::uint32_t room) override {
        return real.BinaryToBase64(binary, text, room);
    }
    Platform::ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                                    std::uint32_t room) override {
        calls.push_back(binary == nullptr ? "measure" : "decode");
        if (failing == calls.back()) return Platform::Result::Failure(5);
        if (empty == calls.back()) return 0U;
        if (binary != nullptr && tooMuch) return room + 1;
        return real.Base64ToBinary(text, binary, room);
    }

    std::string failing;
    std::string empty;     ///< the operation that succeeds with nothing
    bool tooMuch = false;  ///< the decoder says that it has written more than there was room for
    std::vector<std::string> calls;

private:
    Platform::ICertificates& real = Platform::Certificates();
};

TEST(CheckPublicKeyCallbackTest, EachFailingOperationRejectsAndEndsTheCheck) {
    const std::vector<std::string> steps = {"measure", "decode", "create", "compare"};
    FailingCertificates certificates;
    const Platform::Testing::Replace<Platform::ICertificates> replaced(certificates);
    ASSERT_TRUE(AcceptsKey(RsaCertificate, DerOf(RsaCertificate)));
    EXPECT_EQ(certificates.calls, steps);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        certificates.failing = steps[i];
        certificates.calls.clear();
        EXPECT_FALSE(AcceptsKey(RsaCertificate, DerOf(RsaCertificate)));
        EXPECT_EQ(certificates.calls, std::vector<std::string>(
                                          steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(i) + 1));
    }
}

TEST(CheckPublicKeyCallbackTest, MoreThanWasMeasuredIsRejectedAndNotRead) {
    FailingCertificates certificates;
    const Platform::Testing::Replace<Platform::ICertificates> replaced(certificates);
    certificates.tooMuch = true;
    EXPECT_FALSE(AcceptsKey(RsaCertificate, DerOf(RsaCertificate)));
    EXPECT_EQ(certificates.calls, (std::vector<std::string>{"measure", "decode"}));
}

TEST(CheckPublicKeyCallbackTest, SuccessThatGivesNothingRejectsAndEndsTheCheck) {
    FailingCertificates certificates;
    const Platform::Testing::Replace<Platform::ICertificates> replaced(certificates);
    for (const char* const step : {"measure", "create"}) {
        certificates.empty = step;
        certificates.calls.clear();
        EXPECT_FALSE(AcceptsKey(RsaCertificate, DerOf(RsaCertificate)));
        EXPECT_EQ(certificates.calls.back(), step);
    }
}

TEST(CheckPublicKeyCallbackTest, FailingAllocationRejects) {
    const auto before =
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    const bool accepted = AcceptsKey(RsaCertificate, DerOf(RsaCertificate));
    OmbryZephCore::ZephIOBuffer::ReplaceAllocator(before);
    EXPECT_FALSE(accepted);
}

}  // namespace
}  // namespace Ombry::Tests
