#include "ClientCommunications/Impl/Base64.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using ClientCommunications::Base64Decode;
using ClientCommunications::Base64Encode;

std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values)
        bytes += static_cast<char>(static_cast<unsigned char>(value));
    return bytes;
}

TEST(Base64Test, TheVectorsOfTheRfcGoBothWays) {
    const std::vector<std::pair<std::string, std::string>> vectors = {{"", ""},
                                                                      {"f", "Zg=="},
                                                                      {"fo", "Zm8="},
                                                                      {"foo", "Zm9v"},
                                                                      {"foob", "Zm9vYg=="},
                                                                      {"fooba", "Zm9vYmE="},
                                                                      {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, text] : vectors) {
        EXPECT_EQ(Base64Encode(plain), text);
        EXPECT_EQ(Base64Decode(text), plain);
    }
}

TEST(Base64Test, EveryCharacterOfTheAlphabetHasItsPlace) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    for (unsigned i = 0; i < 64; i += 4) {
        const unsigned bits = i << 18 | (i + 1) << 12 | (i + 2) << 6 | (i + 3);
        bytes += Bytes(
            {static_cast<int>(bits >> 16), static_cast<int>(bits >> 8 & 255), static_cast<int>(bits & 255)});
    }
    EXPECT_EQ(Base64Encode(bytes), alphabet);
    EXPECT_EQ(Base64Decode(alphabet), bytes);
}

TEST(Base64Test, BytesAboveTheAsciiRangeAndNulsSurvive) {
    EXPECT_EQ(Base64Encode(Bytes({255, 254, 253})), "//79");
    EXPECT_EQ(Base64Encode(Bytes({255})), "/w==");
    EXPECT_EQ(Base64Encode(Bytes({255, 255})), "//8=");
    EXPECT_EQ(Base64Encode(Bytes({0, 0, 0, 0})), "AAAAAA==");
    EXPECT_EQ(Base64Decode("AAAAAA=="), Bytes({0, 0, 0, 0}));
}

TEST(Base64Test, EveryLengthComesBackWithoutLineBreaks) {
    std::string bytes;
    for (int length = 0; length <= 300; ++length) {
        const std::string text = Base64Encode(bytes);
        EXPECT_EQ(text.size(), (bytes.size() + 2) / 3 * 4);
        EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
        EXPECT_EQ(Base64Decode(text), bytes) << length;
        bytes += static_cast<char>(static_cast<unsigned char>(length * 37 + 11));
    }
}

TEST(Base64Test, DecodingStopsAtAnEqualsSignInTheThirdOrFourthPositionWhateverFollows) {
    EXPECT_EQ(Base64Decode("Zg==Zm9v"), "f");
    EXPECT_EQ(Base64Decode("Zg=xZm9v"), "f");
    EXPECT_EQ(Base64Decode("Zm8=Zm9v"), "fo");
    EXPECT_EQ(Base64Decode("Zm9vZg==Zm9v"), "foof");
    EXPECT_EQ(Base64Decode("Zg="), "f");
}

TEST(Base64Test, AnEqualsSignInTheFirstOrSecondPositionIsJustNoCharacterOfTheAlphabet) {
    // -1 gives all ones to whatever bits are taken from it.
    EXPECT_EQ(Base64Decode("=AAA"), Bytes({0xfc, 0, 0}));
    EXPECT_EQ(Base64Decode("A=AA"), Bytes({0x03, 0xf0, 0}));
    EXPECT_EQ(Base64Decode("===="), Bytes({0xff}));
}

TEST(Base64Test, AnyOtherCharacterCountsAsAllOnesWithoutAnError) {
    EXPECT_EQ(Base64Decode("!AAA"), Bytes({0xfc, 0, 0}));
    EXPECT_EQ(Base64Decode("A!AA"), Bytes({0x03, 0xf0, 0}));
    EXPECT_EQ(Base64Decode("AA!A"), Bytes({0, 0x0f, 0xc0}));
    EXPECT_EQ(Base64Decode("AAA!"), Bytes({0, 0, 0xff}));
    EXPECT_EQ(Base64Decode("\xff\x80\n "), Bytes({0xff, 0xff, 0xff}));
    EXPECT_EQ(Base64Decode("-_AA"), Bytes({0xff, 0xf0, 0}));
}

TEST(Base64Test, TextThatEndsInAGroupGivesTheBytesItBegan) {
    EXPECT_EQ(Base64Decode("Z"), Bytes({0x67}));  // behind the end stands no character of the alphabet
    EXPECT_EQ(Base64Decode("A"), Bytes({0x03}));
    EXPECT_EQ(Base64Decode("Zg"), "f");
    EXPECT_EQ(Base64Decode("Zm8"), "fo");
    EXPECT_EQ(Base64Decode("Zm9vZ"), std::string("foo") + Bytes({0x67}));
    EXPECT_EQ(Base64Decode("Zm9vZm"), "foof");
}

TEST(Base64Test, LineBreaksAreNotSkipped) {
    EXPECT_NE(Base64Decode("Zm9v\nZm9v"), "foofoo");
    EXPECT_EQ(Base64Decode("Zm9v\n").size(), 4u);
}

}  // namespace
}  // namespace Ombry::Tests
