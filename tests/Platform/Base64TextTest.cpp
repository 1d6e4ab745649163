#include "Platform/Base64Text.h"
#include "tests/Fakes/FaultyCertificates.h"

#include <gtest/gtest.h>

#include <string_view>

namespace Ombry::Tests {
namespace {

std::span<const std::uint8_t> SpanOf(std::string_view bytes) {
    return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

class Base64TextTest : public testing::Test {
protected:
    FaultyCertificates certificates;
    const Platform::Testing::Replace<Platform::ICertificates> replaced{certificates};
};

TEST_F(Base64TextTest, TextIsMeasuredAndThenWritten) {
    const auto text = Platform::Base64Text(SpanOf("any bytes"));
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, "YW55IGJ5dGVz");
    EXPECT_EQ(certificates.calls.size(), 2u);
}

TEST_F(Base64TextTest, FailureOfEitherCallIsTheResult) {
    for (const int n : {1, 2}) {
        certificates.calls.clear();
        certificates.Fail("BinaryToBase64", 40 + n, n);
        const auto text = Platform::Base64Text(SpanOf("any bytes"));
        ASSERT_FALSE(text);
        EXPECT_EQ(text.Error(), 40 + n);
        EXPECT_EQ(certificates.calls.size(), static_cast<std::size_t>(n));
    }
}

TEST_F(Base64TextTest, BytesAreMeasuredAndThenRead) {
    const auto bytes = Platform::BytesOfBase64("YW55IGJ5dGVz");
    ASSERT_TRUE(bytes);
    EXPECT_EQ(*bytes, "any bytes");
    EXPECT_EQ(certificates.calls.size(), 2u);
}

TEST_F(Base64TextTest, FailureOfEitherCallOnTheWayBackIsTheResult) {
    for (const int n : {1, 2}) {
        certificates.calls.clear();
        certificates.Fail("Base64ToBinary", 40 + n, n);
        const auto bytes = Platform::BytesOfBase64("YW55IGJ5dGVz");
        ASSERT_FALSE(bytes);
        EXPECT_EQ(bytes.Error(), 40 + n);
        EXPECT_EQ(certificates.calls.size(), static_cast<std::size_t>(n));
    }
}

}  // namespace
}  // namespace Ombry::Tests
