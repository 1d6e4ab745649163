#include "tests/ObjectMapping/MappingSupport.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

enum class Road { Direct, FromDouble, None };

template <class T>
struct Case {
    const char* text;
    Road road;
    T value = T();
};

/// Reads each text as the root, required and optional, with the flag in both states beforehand.
template <class T>
void ExpectReads(const char* type, const std::vector<Case<T>>& cases) {
    for (const Case<T>& c : cases) {
        SCOPED_TRACE(std::string(type) + " from " + c.text);
        T value = T(77);
        if (c.road == Road::None) {
            bool present = true;
            EXPECT_EQ(ReadFailure(c.text, [&](MapperIf& mapper) { mapper.Field(nullptr, value, &present); }),
                      std::string("ERROR: Expected type '") + type +
                          "' when processing '.' serialization_='" + c.text + "'");
            EXPECT_EQ(value, T(77));
            continue;
        }
        ReadText(c.text, [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
        EXPECT_EQ(value, c.value);
        for (const bool before : {false, true}) {
            bool present = before;
            value = T(77);
            ReadText(c.text, [&](MapperIf& mapper) { mapper.Field(nullptr, value, &present); });
            EXPECT_EQ(value, c.value);
            EXPECT_EQ(present, c.road == Road::Direct || before);
        }
    }
}

constexpr Road Direct = Road::Direct, FromDouble = Road::FromDouble, None = Road::None;

/// What no integer overload takes.
template <class T>
void ExpectRefusals(const char* type) {
    ExpectReads<T>(type, {{"2.5", None},
                          {"-0.5", None},
                          {"0.5", None},
                          {"1e300", None},
                          {"-1e300", None},
                          {"1.7976931348623157e308", None},
                          {"-1.7976931348623157e308", None},
                          {"1e-300", None},
                          {"5e-324", None},
                          {"1e20", None},
                          {"-1e20", None},
                          {"18446744073709551616", None},
                          {"\"1\"", None},
                          {"true", None}});
    ExpectReads<T>(type, {{"0", Direct, 0},
                          {"-0", Direct, 0},
                          {"42", Direct, 42},
                          {"0.0", FromDouble, 0},
                          {"-0.0", FromDouble, 0},
                          {"5.0", FromDouble, 5},
                          {"1e3", FromDouble, 1000},
                          {"1E+3", FromDouble, 1000},
                          {"1500e-2", FromDouble, 15},
                          {"1e-400", FromDouble, 0},
                          {"0.0000000000e-2147483639", FromDouble, 0},
                          {"-0.0000000000E-2147483639", FromDouble, 0}});
}

TEST(JSONNumbersTest, AShortTakesTheLowBitsOfAnIntAndWholeDoublesInItsRange) {
    ExpectRefusals<short>("short");
    ExpectReads<short>("short", {{"32767", Direct, 32767},
                                 {"-32768", Direct, -32768},
                                 {"32768", Direct, -32768},
                                 {"-32769", Direct, 32767},
                                 {"70000", Direct, 4464},
                                 {"-70000", Direct, -4464},
                                 {"2147483647", Direct, -1},
                                 {"-2147483648", Direct, 0},
                                 {"2147483648", None},
                                 {"-2147483649", None},
                                 {"32767.0", FromDouble, 32767},
                                 {"-32768.0", FromDouble, -32768},
                                 {"32767.5", None},
                                 {"32768.0", None},
                                 {"-32769.0", None},
                                 {"70000.0", None},
                                 {"-32768.5", None},
                                 {"2147483648.0", None},
                                 {"4294967296.0", None}});
}

TEST(JSONNumbersTest, AnUnsignedShortTakesTheLowBitsOfAnUnsignedAndWholeDoublesInItsRange) {
    ExpectRefusals<unsigned short>("unsigned short");
    ExpectReads<unsigned short>("unsigned short", {{"65535", Direct, 65535},
                                                   {"65536", Direct, 0},
                                                   {"70000", Direct, 4464},
                                                   {"4294967295", Direct, 65535},
                                                   {"4294967296", None},
                                                   {"-1", None},
                                                   {"65535.0", FromDouble, 65535},
                                                   {"65536.0", None},
                                                   {"70000.0", None},
                                                   {"-1.0", None},
                                                   {"4294967296.0", None}});
}

template <class T>
void ExpectSigned32(const char* type) {
    ExpectRefusals<T>(type);
    ExpectReads<T>(type, {{"2147483647", Direct, 2147483647},
                          {"-2147483648", Direct, static_cast<T>(-2147483647 - 1)},
                          {"2147483648", None},
                          {"-2147483649", None},
                          {"3000000000", None},
                          {"4294967296", None},
                          {"9223372036854775807", None},
                          {"2147483647.0", FromDouble, 2147483647},
                          {"2147483647.5", None},
                          {"2147483648.0", None},
                          {"-2147483648.0", FromDouble, static_cast<T>(-2147483647 - 1)},
                          {"-2147483648.5", None},
                          {"-2147483649.0", None},
                          {"4294967296.0", None}});
}

template <class T>
void ExpectUnsigned32(const char* type) {
    ExpectRefusals<T>(type);
    ExpectReads<T>(type, {{"3000000000", Direct, 3000000000u},
                          {"4294967295", Direct, 4294967295u},
                          {"4294967296", None},
                          {"-1", None},
                          {"-2147483648", None},
                          {"4294967295.0", FromDouble, 4294967295u},
                          {"4294967295.5", None},
                          {"4294967296.0", None},
                          {"-1.0", None},
                          {"-4294967295.0", None}});
}

TEST(JSONNumbersTest, AnIntHas32Bits) {
    ExpectSigned32<int>("int");
}

TEST(JSONNumbersTest, ALongHas32BitsWhereverItIsWider) {
    ExpectSigned32<long>("long");
}

TEST(JSONNumbersTest, AnUnsignedIntHas32Bits) {
    ExpectUnsigned32<unsigned int>("unsigned int");
}

TEST(JSONNumbersTest, AnUnsignedLongHas32BitsWhereverItIsWider) {
    ExpectUnsigned32<unsigned long>("unsigned long");
}

TEST(JSONNumbersTest, ALongLongHas64Bits) {
    constexpr long long lowest = std::numeric_limits<long long>::min();
    ExpectRefusals<long long>("long long");
    ExpectReads<long long>("long long",
                           {{"4294967296", Direct, 4294967296},
                            {"-2147483649", Direct, -2147483649},
                            {"9223372036854775807", Direct, 9223372036854775807},
                            {"-9223372036854775808", Direct, lowest},
                            {"9223372036854775808", None},
                            {"18446744073709551615", None},
                            // Beyond 64 bits the parser makes a double of it, rounded into range.
                            {"-9223372036854775809", FromDouble, lowest},
                            {"9223372036854774784.0", FromDouble, 9223372036854774784},
                            {"9223372036854775808.0", None},
                            {"-9223372036854775808.0", FromDouble, lowest},
                            {"-9223372036854777856.0", None}});
}

TEST(JSONNumbersTest, AnUnsignedLongLongHas64Bits) {
    ExpectRefusals<unsigned long long>("unsigned long long");
    ExpectReads<unsigned long long>("unsigned long long",
                                    {{"9223372036854775808", Direct, 9223372036854775808u},
                                     {"18446744073709551615", Direct, 18446744073709551615u},
                                     {"-1", None},
                                     {"-9223372036854775808", None},
                                     {"9223372036854775808.0", FromDouble, 9223372036854775808u},
                                     {"18446744073709549568.0", FromDouble, 18446744073709549568u},
                                     {"18446744073709551615.0", None},
                                     {"-1.0", None}});
}

TEST(JSONNumbersTest, ADoubleRefusesANumberThatLooksLikeAnInteger) {
    ExpectReads<double>("double", {{"42", None},
                                   {"0", None},
                                   {"-0", None},
                                   {"-1", None},
                                   {"4294967296", None},
                                   {"18446744073709551615", None},
                                   {"\"1.0\"", None},
                                   {"42.0", Direct, 42.0},
                                   {"0.0", Direct, 0.0},
                                   {"0.1", Direct, 0.1},
                                   {"1e3", Direct, 1000.0},
                                   {"-2.5E-1", Direct, -0.25},
                                   {"1e-400", Direct, 0.0},
                                   {"1.7976931348623157e308", Direct, std::numeric_limits<double>::max()},
                                   {"18446744073709551616", Direct, 18446744073709551616.0},
                                   {"-9223372036854775809", Direct, -9223372036854775808.0}});
}

TEST(JSONNumbersTest, ADoubleIsReadInNormalAndNotInFullPrecisionOnPurpose) {
    const char* const text = "2.2250738585072011e-308";
    double value = 0;
    ReadText(text, [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, std::numeric_limits<double>::min());
    EXPECT_NE(value, std::strtod(text, nullptr));
}

TEST(JSONNumbersTest, AnInfinityThatTheLibraryMakesOfTooGreatANumberIsTakenAsItIs) {
    // Its check of the exponent lets a mantissa of many digits pass.
    const double infinity = std::numeric_limits<double>::infinity();
    ExpectReads<double>("double", {{"900000000000.0122845111e308", Direct, infinity},
                                   {"-900000000000.0122845111e308", Direct, -infinity}});
    ExpectReads<long long>("long long",
                           {{"900000000000.0122845111e308", None}, {"-900000000000.0122845111e308", None}});
    ExpectReads<unsigned long long>("unsigned long long", {{"900000000000.0122845111e308", None},
                                                           {"-900000000000.0122845111e308", None}});
}

TEST(JSONNumbersTest, ADoubleKeepsTheSignOfZero) {
    double value = 1;
    ReadText("-0.0", [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, 0.0);
    EXPECT_TRUE(std::signbit(value));
}

TEST(JSONNumbersTest, ABoolTakesTrueAndFalseOnly) {
    bool value = false, present = false;
    const auto read = [&](MapperIf& mapper) { mapper.Field(nullptr, value, &present); };
    ReadText("true", read);
    EXPECT_TRUE(value);
    EXPECT_TRUE(present);
    present = false;
    ReadText("false", read);
    EXPECT_FALSE(value);
    EXPECT_TRUE(present);
    for (const char* text : {"0", "1", "1.0", "\"true\"", "[]", "{}"})
        EXPECT_EQ(
            ReadFailure(text, read),
            std::string("ERROR: Expected type 'bool' when processing '.' serialization_='") + text + "'");
}

TEST(JSONNumbersTest, WholeDoublesComeBackThroughTheSerializer) {
    for (const double number : {0.0, 5.0, 0.1, 1.0 / 3, 1e21, 1e30, 1e-7, -2.5}) {
        double copy = 7;
        ReadText(WrittenRoot(number), [&](MapperIf& mapper) { mapper.Field(nullptr, copy, nullptr); });
        EXPECT_EQ(copy, number);
    }
}

}  // namespace
}  // namespace Ombry::Tests
