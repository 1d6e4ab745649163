#include "Platform/LongExponents.h"

#include <gtest/gtest.h>

#include <string>

namespace Ombry::Tests {
namespace {

using Platform::CutLongExponents;
using Platform::HasLongExponent;

std::string Cut(std::string text) {
    CutLongExponents(text);
    return text;
}

TEST(LongExponentsTest, TenDigitsAreTooManyAndNineAreNot) {
    for (const char* number : {"1e1234567890", "1E1234567890", "-0.5e+1234567890", "0.0e-2147483639, 1",
                               "12.50E-99999999999999999999}", "1e-0001234567890"})
        EXPECT_TRUE(HasLongExponent(number)) << number;
    for (const char* number :
         {"1e123456789", "-0.5e-999999999", "1e-0000000000000000123456789", "12345678901234567890",
          "0.12345678901", "1e", "1e-", "e", "", "\"1e1234567890\"", "[1e1234567890]", "1 e1234567890"})
        EXPECT_FALSE(HasLongExponent(number)) << number;
}

TEST(LongExponentsTest, LongOnesAreCutWhereTheyStandAndNothingMoves) {
    EXPECT_EQ(Cut("{\"x\":0.0000000000e-2147483639}"), "{\"x\":0.0000000000e-0999999999}");
    EXPECT_EQ(Cut("[1e+00012345678901,2E-1234567890,3e123456789]"),
              "[1e+00000999999999,2E-0999999999,3e123456789]");
    EXPECT_EQ(Cut("1e12345678901"), "1e00999999999");
    EXPECT_EQ(Cut("[true,false,1e,1e-,1e0000000000001]"), "[true,false,1e,1e-,1e0000000000001]");
    EXPECT_EQ(Cut("1e"), "1e");
    EXPECT_EQ(Cut(""), "");
}

TEST(LongExponentsTest, StringsStayAsTheyAre) {
    for (const std::string text : {"\"1e12345678901\"", "{\"e-12345678901\":\"a\\\"e12345678901\\\\\"}",
                                   "\"unclosed e12345678901", "\"ends with an escape \\"})
        EXPECT_EQ(Cut(text), text);
    EXPECT_EQ(Cut("[\"\\\\\",1e12345678901]"), "[\"\\\\\",1e00999999999]");
}

}  // namespace
}  // namespace Ombry::Tests
