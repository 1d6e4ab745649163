// The Base64 of the certificates.

#include "Platform/ICertificates.h"

namespace Ombry::Tests {
namespace {

std::span<const std::uint8_t> BinaryOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

class PlatformBase64Test : public testing::Test {
protected:
    /// The text of these bytes, measured first.
    std::string Encode(std::string_view binary) {
        const auto size = certificates.BinaryToBase64(BinaryOf(binary), nullptr, 0);
        EXPECT_TRUE(size);
        std::string text(*size + 1, '#');
        const auto written = certificates.BinaryToBase64(BinaryOf(binary), text.data(), *size);
        EXPECT_EQ(*written, *size);
        EXPECT_EQ(text.back(), '#');
        text.pop_back();
        return text;
    }

    /// The bytes of this text, measured first; "failure" if either call fails.
    std::string Decode(std::string_view text) {
        const auto size = certificates.Base64ToBinary(text, nullptr, 0);
        if (!size) return "failure";
        std::string binary(*size + 1, '#');
        const auto written =
            certificates.Base64ToBinary(text, reinterpret_cast<std::uint8_t*>(binary.data()), *size);
        if (!written) return "failure";
        EXPECT_EQ(*written, *size);
        EXPECT_EQ(binary.back(), '#');
        binary.pop_back();
        return binary;
    }

    Platform::ICertificates& certificates = Platform::Certificates();
};

TEST_F(PlatformBase64Test, Base64OfTheStandardsExamplesBothWays) {
    const std::vector<std::pair<std::string, std::string>> cases{{"f", "Zg=="},
                                                                 {"fo", "Zm8="},
                                                                 {"foo", "Zm9v"},
                                                                 {"foob", "Zm9vYg=="},
                                                                 {"fooba", "Zm9vYmE="},
                                                                 {"foobar", "Zm9vYmFy"},
                                                                 {std::string(3, '\0'), "AAAA"},
                                                                 {"\xFB\xEF\xBE", "++++"},
                                                                 {"\xFF\xFF\xFF", "////"}};
    for (const auto& [binary, text] : cases) {
        EXPECT_EQ(Encode(binary), text);
        EXPECT_EQ(Decode(text), binary);
    }
}

TEST_F(PlatformBase64Test, Base64OfEveryByteComesBackAndHasNoLineBreak) {
    std::string all;
    for (int i = 0; i < 1024; ++i)
        all += static_cast<char>(i);
    const std::string text = Encode(all);
    EXPECT_EQ(text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
              std::string::npos);
    EXPECT_EQ(Decode(text), all);
}

TEST_F(PlatformBase64Test, EncodingOfNothingIsEmpty) {
    EXPECT_EQ(Encode(""), "");
}

TEST_F(PlatformBase64Test, WhiteSpaceInBase64PlaysNoPart) {
    EXPECT_EQ(Decode("Zm9v\r\nYmFy\r\n"), "foobar");
    EXPECT_EQ(Decode(" \t\v\fZ m\n9 v "), "foo");
    EXPECT_EQ(Decode("Zg =\n="), "f");
}

TEST_F(PlatformBase64Test, EverythingElseInBase64IsFailure) {
    for (const std::string& text :
         {std::string(),           std::string(" \r\n"), std::string("Z"),
          std::string("Zg"),       std::string("Zg="),   std::string("Zm9"),
          std::string("Zm9vY"),    std::string("="),     std::string("=="),
          std::string("===="),     std::string("Zg==="), std::string("Zg==Zg=="),
          std::string("Zm8=Zm8="), std::string("Z=g="),  std::string("=Zg="),
          std::string("Z==="),     std::string("Zm9v="), std::string("Zm9v===="),
          std::string("Zm-v"),     std::string("Zm_v"),  std::string("Zm9v\0", 5),
          std::string("Zm9\xC3"),  std::string("Zm.v"),  std::string("-----BEGIN CERTIFICATE-----")}) {
        EXPECT_EQ(Decode(text), "failure") << testing::PrintToString(text);
    }
    // Three signs fill up a group of a single digit, which holds no whole byte.
    for (const std::string text : {"A===", "AAAAA==="})
        EXPECT_EQ(Decode(text), "failure") << text;
}

TEST_F(PlatformBase64Test, BitsThatBelongToNoByteMustBeZero) {
    EXPECT_EQ(Decode("Zh=="), "failure");
    EXPECT_EQ(Decode("Zm9="), "failure");
}

TEST_F(PlatformBase64Test, RoomThatIsOneTooSmallIsFailure) {
    char text[4];
    EXPECT_FALSE(certificates.BinaryToBase64(BinaryOf("f"), text, 3));
    std::uint8_t binary[3];
    EXPECT_FALSE(certificates.Base64ToBinary("Zm9v", binary, 2));
    EXPECT_EQ(*certificates.Base64ToBinary("Zm9v", binary, 3), 3u);
}

}  // namespace
}  // namespace Ombry::Tests
