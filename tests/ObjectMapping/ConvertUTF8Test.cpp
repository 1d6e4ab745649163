#include "ObjectMapping/Impl/ConvertUTF8.h"
#include "Platform/ITextConversion.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping::Impl;

/// Answers each call with the next scripted count and notes what it was asked.
class ScriptedConversion : public Platform::ITextConversion {
public:
    explicit ScriptedConversion(std::vector<Count> answers) : answers(std::move(answers)) {}

    Count Utf8ToWide(std::string_view text, wchar_t* out, std::size_t room) override {
        return Answer("wide " + std::to_string(text.size()), out, room);
    }
    Count WideToUtf8(std::wstring_view text, char* out, std::size_t room) override {
        return Answer("utf8 " + std::to_string(text.size()), out, room);
    }

    std::vector<std::string> calls;

private:
    template <class Character>
    Count Answer(const std::string& call, Character* out, std::size_t room) {
        calls.push_back(call + (out ? " into " + std::to_string(room) : " measure"));
        for (std::size_t i = 0; out && i < room; ++i)
            out[i] = static_cast<Character>('x');
        if (calls.size() > answers.size()) return {0, -1};
        return answers[calls.size() - 1];
    }

    std::vector<Count> answers;
};

using Calls = std::vector<std::string>;

TEST(ConvertFromUTF8Test, AnEmptyTextNeedsNoCall) {
    ScriptedConversion conversion({});
    Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
    EXPECT_EQ(ConvertFromUTF8(""), L"");
    EXPECT_TRUE(conversion.calls.empty());
}

TEST(ConvertFromUTF8Test, MeasuresThenConvertsIntoExactlyThatRoom) {
    ScriptedConversion conversion({{3, 0}, {3, 0}});
    Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
    EXPECT_EQ(ConvertFromUTF8("abcd"), L"xxx");
    EXPECT_EQ(conversion.calls, (Calls{"wide 4 measure", "wide 4 into 3"}));
}

TEST(ConvertFromUTF8Test, ACountBelowOneOfTheFirstCallIsAFailure) {
    for (const int count : {0, -1}) {
        ScriptedConversion conversion({{count, 1113}});
        Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
        EXPECT_EQ(FailureOf([] { ConvertFromUTF8("abcd"); }),
                  "ConvertFromUTF8: MultiByteToWideChar (first call) failed with error 1113");
        EXPECT_EQ(conversion.calls.size(), 1u);
    }
}

TEST(ConvertFromUTF8Test, TheSecondCallsFailureNamesTheWrongFunctionOnPurpose) {
    for (const int count : {0, -1}) {
        ScriptedConversion conversion({{1, 0}, {count, 122}});
        Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
        EXPECT_EQ(FailureOf([] { ConvertFromUTF8("abcd"); }),
                  "ConvertFromUTF8: WideCharToMultiByte (second call) failed with error 122");
        EXPECT_EQ(conversion.calls.size(), 2u);
    }
}

TEST(ConvertFromUTF8Test, GivesUtf16UnitsAndReplacesInvalidInput) {
    EXPECT_EQ(ConvertFromUTF8("a\xc3\xa9\xe2\x82\xac"), L"a\u00e9\u20ac");
    EXPECT_EQ(ConvertFromUTF8("\xf0\x9f\x98\x80"),
              (std::wstring{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)}));
    EXPECT_EQ(ConvertFromUTF8("a\xff"
                              "b"),
              L"a\uFFFDb");
    EXPECT_EQ(ConvertFromUTF8(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(ConvertToUTF8Test, AnEmptyTextNeedsNoCall) {
    ScriptedConversion conversion({});
    Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
    EXPECT_EQ(ConvertToUTF8(L""), "");
    EXPECT_TRUE(conversion.calls.empty());
}

TEST(ConvertToUTF8Test, MeasuresThenConvertsIntoExactlyThatRoom) {
    ScriptedConversion conversion({{5, 0}, {5, 0}});
    Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
    EXPECT_EQ(ConvertToUTF8(L"ab"), "xxxxx");
    EXPECT_EQ(conversion.calls, (Calls{"utf8 2 measure", "utf8 2 into 5"}));
}

TEST(ConvertToUTF8Test, ACountBelowOneOfTheFirstCallIsAFailure) {
    for (const int count : {0, -1}) {
        ScriptedConversion conversion({{count, 87}});
        Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
        EXPECT_EQ(FailureOf([] { ConvertToUTF8(L"ab"); }),
                  "ConvertToUTF8: WideCharToMultiByte (first call) failed with error 87");
        EXPECT_EQ(conversion.calls.size(), 1u);
    }
}

TEST(ConvertToUTF8Test, ACountBelowOneOfTheSecondCallIsAFailure) {
    for (const int count : {0, -1}) {
        ScriptedConversion conversion({{1, 0}, {count, 8}});
        Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
        EXPECT_EQ(FailureOf([] { ConvertToUTF8(L"ab"); }),
                  "ConvertToUTF8: WideCharToMultiByte (second call) failed with error 8");
        EXPECT_EQ(conversion.calls.size(), 2u);
    }
}

TEST(ConvertToUTF8Test, TakesPairsAndReplacesLoneSurrogates) {
    const std::wstring pair{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(ConvertToUTF8(pair), "\xf0\x9f\x98\x80");
    EXPECT_EQ(ConvertToUTF8(std::wstring(1, static_cast<wchar_t>(0xD83D))), "\xef\xbf\xbd");
    EXPECT_EQ(ConvertToUTF8(std::wstring(1, static_cast<wchar_t>(0xDE00))), "\xef\xbf\xbd");
}

/// The mappers go through the same conversion, with its failures.
TEST(ConvertUTF8Test, FailuresComeOutOfTheMappers) {
    ScriptedConversion conversion({{0, 1}, {0, 2}});
    Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
    std::wstring value = L"kept";
    EXPECT_EQ(FailureOf([&] { WrittenRoot(value); }),
              "ConvertToUTF8: WideCharToMultiByte (first call) failed with error 1");
    EXPECT_EQ(
        ReadFailure("\"x\"", [&](ObjectMapping::MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); }),
        "ConvertFromUTF8: MultiByteToWideChar (first call) failed with error 2");
    EXPECT_EQ(value, L"kept");
}

}  // namespace
}  // namespace Ombry::Tests
