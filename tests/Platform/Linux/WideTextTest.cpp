// What is this platform's own in the conversion of texts: how many characters stand for what is invalid, and
// wide characters of 32 bits.

#include "tests/Platform/TextConversionFixture.h"

namespace Ombry::Tests {
namespace {

TEST(WideTextTest, EachByteOfASequenceThatNoneMayBeginWithIsReplaced) {
    const std::vector<std::pair<std::string, std::wstring>> cases{
        {"\xE0\x9F\xBF", Units({0xFFFD, 0xFFFD, 0xFFFD})},              // overlong
        {"\xF0\x8F\xBF\xBF", Units({0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD})},  // overlong
        {"\xED\xA0\x80", Units({0xFFFD, 0xFFFD, 0xFFFD})},              // surrogate
        {"\xF4\x90\x80\x80", Units({0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD})},  // above U+10FFFF
    };
    for (const auto& [utf8, wide] : cases)
        EXPECT_EQ(ToWide(utf8), wide) << testing::PrintToString(utf8);
}

TEST(WideTextTest, SingleWideCharacterAboveTheFirstPlaneIsAcceptedOnTheWayOut) {
    EXPECT_EQ(ToUtf8(Units({0x10000})), "\xF0\x90\x80\x80");
    EXPECT_EQ(ToUtf8(Units({0x1F600})), "\xF0\x9F\x98\x80");
    EXPECT_EQ(ToUtf8(Units({0x10FFFF})), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(ToUtf8(Units({0x110000})), "\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xFFFFFFFF})), "\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xD83D, 0x1F600})), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(WideTextTest, NoHalfOfAPairIsWritten) {
    wchar_t wide[1] = {L'#'};
    const auto count =
        Platform::Production<Platform::ITextConversion>().Utf8ToWide("\xF0\x9F\x98\x80", wide, 1);
    EXPECT_EQ(count.count, 0);
    EXPECT_EQ(count.error, 122);
}

}  // namespace
}  // namespace Ombry::Tests
