#include "Platform/Windows/ConsoleBuffer.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace Ombry::Tests {
namespace {

using Platform::Windows::ConsoleBuffer;

const std::string Utf8 = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z";
const std::wstring Units = L"\u00E4\u20AC\U0001F600z";

class ConsoleBufferTest : public testing::Test {
protected:
    std::wstring All() const {
        std::wstring all;
        for (const std::wstring& piece : pieces)
            all += piece;
        return all;
    }

    std::vector<std::wstring> pieces;
    std::size_t most = 100'000;
    ConsoleBuffer buffer{[this](std::wstring_view units) {
        const std::size_t taken = std::min(most, units.size());
        if (taken != 0) pieces.emplace_back(units.substr(0, taken));
        return taken;
    }};
    std::ostream stream{&buffer};
};

TEST_F(ConsoleBufferTest, TextIsShownAtOnceInTheUnitsThatItIsMadeOf) {
    stream << Utf8;
    EXPECT_TRUE(All() == Units);
    EXPECT_EQ(pieces.size(), 1u);
}

TEST_F(ConsoleBufferTest, CharacterIsShownWithItsLastByteHoweverItComes) {
    for (std::size_t first = 0; first <= Utf8.size(); ++first) {
        pieces.clear();
        stream << Utf8.substr(0, first) << Utf8.substr(first);
        EXPECT_TRUE(All() == Units) << first;
    }
    pieces.clear();
    for (const char byte : Utf8)
        stream.put(byte);
    EXPECT_TRUE(All() == Units);
    EXPECT_EQ(pieces.size(), 4u);
    EXPECT_TRUE(stream.good());
}

TEST_F(ConsoleBufferTest, BeginningOfACharacterIsShownAsWhatItIsByTheFlush) {
    stream << "a\xE2\x82";
    EXPECT_TRUE(All() == L"a");
    stream.flush();
    EXPECT_TRUE(All() == L"a\uFFFD");
    EXPECT_TRUE(stream.good());
}

TEST_F(ConsoleBufferTest, LongTextComesInPiecesThatCutNoPair) {
    const std::size_t before = ConsoleBuffer::MostUnits - 1;
    stream << std::string(before, 'x') + "\xF0\x9F\x98\x80" + std::string(before, 'y');
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[0].size(), before);
    EXPECT_EQ(pieces[1].size(), ConsoleBuffer::MostUnits);
    EXPECT_TRUE(All() == std::wstring(before, L'x') + L"\U0001F600" + std::wstring(before, L'y'));
}

TEST_F(ConsoleBufferTest, WhatTheConsoleDoesNotTakeAtOnceFollows) {
    most = 2;
    stream << "abcde";
    EXPECT_TRUE(All() == L"abcde");
    EXPECT_EQ(pieces.size(), 3u);
}

TEST_F(ConsoleBufferTest, ConsoleThatTakesNothingFailsTheStream) {
    most = 0;
    stream << "a";
    EXPECT_FALSE(stream.good());
    stream.clear();
    stream << "\xE2";
    EXPECT_TRUE(stream.good());
    EXPECT_FALSE(stream.flush());
}

}  // namespace
}  // namespace Ombry::Tests
