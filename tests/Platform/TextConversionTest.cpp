#include "tests/Platform/TextConversionFixture.h"

namespace Ombry::Tests {
namespace {

using Platform::ITextConversion;

TEST(TextConversionTest, ValidTextConvertsBothWaysAtEveryBoundary) {
    struct Case {
        std::string utf8;
        std::wstring wide;
    };
    const std::vector<Case> cases{
        {std::string("\0", 1), Units({0})},
        {"a", Units({'a'})},
        {"\x7F", Units({0x7F})},
        {"\xC2\x80", Units({0x80})},
        {"\xDF\xBF", Units({0x7FF})},
        {"\xE0\xA0\x80", Units({0x800})},
        {"\xE2\x82\xAC", Units({0x20AC})},
        {"\xED\x9F\xBF", Units({0xD7FF})},
        {"\xEE\x80\x80", Units({0xE000})},
        {"\xEF\xBF\xBF", Units({0xFFFF})},
        {"\xF0\x90\x80\x80", Units({0xD800, 0xDC00})},
        {"\xF0\x9F\x98\x80", Units({0xD83D, 0xDE00})},
        {"\xF4\x8F\xBF\xBF", Units({0xDBFF, 0xDFFF})},
        {"a\xF0\x9F\x98\x80z", Units({'a', 0xD83D, 0xDE00, 'z'})},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(ToWide(one.utf8), one.wide) << testing::PrintToString(one.utf8);
        EXPECT_EQ(ToUtf8(one.wide), one.utf8) << testing::PrintToString(one.utf8);
    }
}

TEST(TextConversionTest, InvalidUtf8BecomesReplacementCharactersAndIsNoFailure) {
    struct Case {
        std::string utf8;
        std::wstring wide;
    };
    const std::vector<Case> cases{
        {"\x80", Units({0xFFFD})},
        {"\xBF\x80", Units({0xFFFD, 0xFFFD})},
        {"\xC0\x80", Units({0xFFFD, 0xFFFD})},  // overlong
        {"\xC1\xBF", Units({0xFFFD, 0xFFFD})},  // overlong
        {"\xF5\x80", Units({0xFFFD, 0xFFFD})},
        {"\xFF", Units({0xFFFD})},
        {"\xC2", Units({0xFFFD})},          // cut off
        {"\xE2\x82", Units({0xFFFD})},      // cut off
        {"\xF0\x9F\x98", Units({0xFFFD})},  // cut off
        {"\xE2\x82z", Units({0xFFFD, 'z'})},
        {"\xC2\xC2\x80", Units({0xFFFD, 0x80})},
        {"\xF0\x9F\xE2\x82\xAC", Units({0xFFFD, 0x20AC})},
        {"a\xFFz", Units({'a', 0xFFFD, 'z'})},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(ToWide(one.utf8), one.wide) << testing::PrintToString(one.utf8);
    }
}

TEST(TextConversionTest, SequenceThatNoneMayBeginWithBecomesReplacementCharactersAlone) {
    for (const std::string overlongSurrogateOrTooHigh :
         {"\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        const std::wstring wide = ToWide(overlongSurrogateOrTooHigh);
        EXPECT_FALSE(wide.empty());
        EXPECT_EQ(wide, std::wstring(wide.size(), static_cast<wchar_t>(0xFFFD)));
        EXPECT_LE(wide.size(), overlongSurrogateOrTooHigh.size());
    }
}

TEST(TextConversionTest, LoneSurrogatesBecomeReplacementCharacters) {
    EXPECT_EQ(ToUtf8(Units({0xD800})), "\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xDBFF, 'a'})),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(ToUtf8(Units({0xDC00})), "\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xDFFF, 0xD800})), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xDC00, 0xDC00})), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xDBFF, 0xDFFF, 0xDFFF})), "\xF4\x8F\xBF\xBF\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(Units({0xD800, 0xD800, 0xDC00})), "\xEF\xBF\xBD\xF0\x90\x80\x80");
    EXPECT_EQ(ToUtf8(Units({0xD800, 0xE000})), "\xEF\xBF\xBD\xEE\x80\x80");
}

TEST(TextConversionTest, RoomThatIsTooSmallFailsWithInsufficientBuffer) {
    ITextConversion& conversion = Platform::Production<ITextConversion>();
    std::wstring wide(8, L'#');
    auto count = conversion.Utf8ToWide("ab", wide.data(), 1);
    EXPECT_EQ(count.count, 0);
    EXPECT_EQ(count.error, 122);
    EXPECT_EQ(wide.substr(1), std::wstring(7, L'#'));

    std::string bytes(8, '#');
    count = conversion.WideToUtf8(Units({0x20AC}), bytes.data(), 2);
    EXPECT_EQ(count.count, 0);
    EXPECT_EQ(count.error, 122);
    EXPECT_EQ(bytes, "########");
    count = conversion.WideToUtf8(L"a", bytes.data(), 0);
    EXPECT_EQ(count.count, 0);
    EXPECT_EQ(count.error, 122);
}

TEST(TextConversionTest, EmptyTextIsAnInvalidParameter) {
    ITextConversion& conversion = Platform::Production<ITextConversion>();
    wchar_t wide = 0;
    char byte = 0;
    for (const auto count : {conversion.Utf8ToWide("", nullptr, 0), conversion.Utf8ToWide("", &wide, 1),
                             conversion.WideToUtf8(L"", nullptr, 0), conversion.WideToUtf8(L"", &byte, 1)}) {
        EXPECT_EQ(count.count, 0);
        EXPECT_EQ(count.error, 87);
    }
}

}  // namespace
}  // namespace Ombry::Tests
