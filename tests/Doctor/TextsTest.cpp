#include "Doctor/Texts.h"
#include "tests/Packaging/Programs.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace Doctor;

TEST(QuotedTest, PlainWordsStayAsTheyAre) {
    EXPECT_EQ(Quoted("/var/lib/Quennet"), "/var/lib/Quennet");
    EXPECT_EQ(Quoted("https://h:1/x"), "https://h:1/x");
}

TEST(QuotedTest, ShellReadsExactlyTheBytesOfAnyOther) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += static_cast<char>(byte);
    for (const std::string& text :
         {std::string(), std::string("it's"), std::string("a b"), std::string("$(x)`y`\\"), std::string("~"),
          std::string("M\xc3\xbcller"), std::string("\n\x1b[2J"),
          std::string("\xff"
                      "f"),
          all}) {
        EXPECT_EQ(Shell("printf %s " + Quoted(text)).output, text);
        EXPECT_EQ(Printable(Quoted(text)), Quoted(text));
    }
}

TEST(PrintableTest, WhatControlsATerminalBecomesASign) {
    EXPECT_EQ(Printable("plain"), "plain");
    EXPECT_EQ(Printable("M\xc3\xbcller"), "M\xc3\xbcller");
    const std::string sign = "\xef\xbf\xbd";
    for (const std::string text : {"\x1b", "\n", "\x7f", "\xff", "\xc2\x9b", "\xe2\x80\xae"})
        EXPECT_EQ(Printable("a" + text + "b"), "a" + sign + "b");
}

TEST(Utf8OfTest, ReplacesWhatIsNoneAndNothingElse) {
    EXPECT_EQ(Utf8Of("plain"), "plain");
    EXPECT_EQ(Utf8Of("M\xc3\xbcller\n\x1b"), "M\xc3\xbcller\n\x1b");
    EXPECT_EQ(Utf8Of("a\xff"
                     "b\xc3"),
              "a\xef\xbf\xbd"
              "b\xef\xbf\xbd");
}

TEST(LengthTextTest, HasOneUnit) {
    const std::vector<std::pair<int, std::string>> texts{{0, "0 s"},    {119, "119 s"},   {120, "2 min"},
                                                         {7200, "2 h"}, {172799, "47 h"}, {172800, "2 days"}};
    for (const auto& [seconds, text] : texts)
        EXPECT_EQ(LengthText(Duration(seconds * TicksPerSecond)), text);
}

TEST(TimeTextTest, HasNoFraction) {
    EXPECT_EQ(TimeText(TimePoint(Duration(15'000'000))), "1970-01-01T00:00:01Z");
}

}  // namespace
}  // namespace Ombry::Tests
