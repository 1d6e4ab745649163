#include "ObjectMapping/DateTime.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

TimePoint At(std::int64_t ticks) {
    return TimePoint(Duration(ticks));
}

constexpr std::int64_t Noon = 16566788960000000;  // 2022-07-01T12:34:56Z

std::optional<std::int64_t> Parsed(const std::string& text) {
    TimePoint value = At(-77);
    if (ParseDateTime(text, value)) return value.time_since_epoch().count();
    EXPECT_EQ(value, At(-77)) << text << " failed, but changed the value";
    return std::nullopt;
}

/// What the text means, written out in the form that the system writes.
std::string Normalised(const std::string& text) {
    const auto ticks = Parsed(text);
    return ticks ? FormatDateTime(At(*ticks)) : "no match";
}

TEST(FormatDateTimeTest, WritesSevenDigitsOfFractionInUtc) {
    EXPECT_EQ(FormatDateTime(At(0)), "1970-01-01T00:00:00.0000000Z");
    EXPECT_EQ(FormatDateTime(At(1)), "1970-01-01T00:00:00.0000001Z");
    EXPECT_EQ(FormatDateTime(At(9'999'999)), "1970-01-01T00:00:00.9999999Z");
    EXPECT_EQ(FormatDateTime(At(10'000'000)), "1970-01-01T00:00:01.0000000Z");
    EXPECT_EQ(FormatDateTime(At(Noon + 1'234'567)), "2022-07-01T12:34:56.1234567Z");
    EXPECT_EQ(FormatDateTime(At(9'518'687'990'000'000)), "2000-02-29T23:59:59.0000000Z");
    EXPECT_EQ(FormatDateTime(At(2'534'023'007'999'999'999)), "9999-12-31T23:59:59.9999999Z");
    EXPECT_EQ(FormatDateTime(At(2'534'023'008'000'000'000)), "10000-01-01T00:00:00.0000000Z");
}

TEST(FormatDateTimeTest, CountsDownFrom1970WithoutANegativeFraction) {
    EXPECT_EQ(FormatDateTime(At(-1)), "1969-12-31T23:59:59.9999999Z");
    EXPECT_EQ(FormatDateTime(At(-5)), "1969-12-31T23:59:59.9999995Z");
    EXPECT_EQ(FormatDateTime(At(-10'000'000)), "1969-12-31T23:59:59.0000000Z");
    EXPECT_EQ(FormatDateTime(At(-10'000'001)), "1969-12-31T23:59:58.9999999Z");
    EXPECT_EQ(FormatDateTime(At(-621'355'968'000'000'000)), "0001-01-01T00:00:00.0000000Z");
}

TEST(FormatDateTimeTest, TakesTheEndsOfTheRange) {
    EXPECT_EQ(FormatDateTime(TimePoint::max()), "31197-09-14T02:48:05.4775807Z");
    EXPECT_EQ(FormatDateTime(TimePoint::min()), "-27258-04-19T21:11:54.5224192Z");
}

TEST(ParseDateTimeTest, AcceptsTheFormsOfThePattern) {
    const std::pair<const char*, std::int64_t> cases[] = {
        {"2022-07-01T12:34:56Z", Noon},
        {"2022-07-01t12:34:56z", Noon},
        {"2022-07-01 12:34:56Z", Noon},
        {"2022-07-01|12:34:56Z", Noon},
        {"2022-7-1T12:34:56Z", Noon},
        {"2022-07-01T12:34:56.5Z", Noon + 5'000'000},
        {"2022-07-01T12:34:56.1234567Z", Noon + 1'234'567},
        {"2022-07-01T12:34:56.12345678Z", Noon + 1'234'567},
        {"2022-07-01T12:34:56.12345679z", Noon + 1'234'567},
        {"2022-07-01T1:2:3Z", Noon - (11 * 3600 + 32 * 60 + 53) * TicksPerSecond},
        {"2022-07-01T01:02:03Z", Noon - (11 * 3600 + 32 * 60 + 53) * TicksPerSecond},
        {"1970-01-01T00:00:00Z", 0},
        {"1969-12-31T23:59:59.9999999Z", -1},
        {"0000-01-01T00:00:00Z", -62'167'219'200 * TicksPerSecond},
        {"0001-01-01T00:00:00Z", -62'135'596'800 * TicksPerSecond},
        {"9999-12-31T23:59:59.9999999Z", 2'534'023'007'999'999'999},
    };
    for (const auto& [text, ticks] : cases)
        EXPECT_EQ(Parsed(text), ticks) << text;
}

TEST(ParseDateTimeTest, RefusesWhatThePatternDoesNotMatch) {
    const char* const cases[] = {
        "",
        "Z",
        "x",
        " 2022-07-01T12:34:56Z",
        "2022-07-01T12:34:56Z ",
        "2022-07-01T12:34:56Z\n",
        "2022-07-01T12:34:56ZZ",
        "2022-07-01T12:34:56",
        "2022-07-01T12:34:56+01:00",
        "2022-07-01T12:34:56+01:00Z",
        "2022-07-01T12:34:56.Z",
        "2022-07-01T12:34:56.5",
        "2022-07-01T12:34:56.5.5Z",
        "2022-07-01T12:34:56,5Z",
        "2022-07-01T12:34:56.5 Z",
        "2022-07-01T12:34:56.-5Z",
        "2022-07-01T12:34Z",
        "2022-07-01T12:34:Z",
        "2022-07-01TT12:34:56Z",
        "2022-07-01  12:34:56Z",
        "2022-07-01X12:34:56Z",
        "2022-07-01\t12:34:56Z",
        "2022-07-0112:34:56Z",
        "2022-07-01Z",
        "2022/07/01T12:34:56Z",
        "222-07-01T12:34:56Z",
        "20222-07-01T12:34:56Z",
        "+2022-07-01T12:34:56Z",
        "-2022-07-01T12:34:56Z",
        "2022-007-01T12:34:56Z",
        "2022-07-001T12:34:56Z",
        "2022-07-01T012:34:56Z",
        "2022-07-01T12:034:56Z",
        "2022-07-01T12:34:056Z",
        "2022--01T12:34:56Z",
        "2022-07-T12:34:56Z",
        "2022-07-01T:34:56Z",
        "2022-07-01T12::56Z",
        "2022-07-01T12.34.56Z",
        "2022-07-01T12:34:56\xc3\x9a",
        "2022-07-0\xb2T12:34:56Z",
    };
    for (const char* text : cases)
        EXPECT_EQ(Parsed(text), std::nullopt) << text;
    EXPECT_EQ(Parsed(std::string("2022-07-01T12:34:56Z\0", 21)), std::nullopt);
    EXPECT_EQ(Parsed(std::string("2022-07-01T12:34:56\0Z", 21)), std::nullopt);
}

TEST(ParseDateTimeTest, RefusesEveryPrefixOfAGoodText) {
    const std::string good = "2022-07-01T12:34:56.1234567Z";
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_EQ(Parsed(good.substr(0, length)), std::nullopt) << good.substr(0, length);
    EXPECT_EQ(Parsed(good), Noon + 1'234'567);
}

TEST(ParseDateTimeTest, RefusesEveryOtherByteInTheForm) {
    const std::string good = "2022-07-01T12:34:56.5Z";
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (int byte = 0; byte < 256; ++byte) {
            const char letter = static_cast<char>(byte);
            std::string text = good;
            text[at] = letter;
            const bool digit = letter >= '0' && letter <= '9';
            bool accepted = false;
            if (good[at] >= '0' && good[at] <= '9')
                accepted = digit;
            else if (good[at] == 'T')
                accepted = letter == 'T' || letter == 't' || letter == '|' || letter == ' ';
            else if (good[at] == 'Z')
                accepted = letter == 'Z' || letter == 'z';
            else
                accepted = letter == good[at];
            EXPECT_EQ(Parsed(text).has_value(), accepted) << at << " " << byte;
        }
    }
}

TEST(ParseDateTimeTest, FractionsCountToTheSeventhDigitAndAreCutNotRounded) {
    const std::string digits = "987654321987654321987654321987";
    const std::int64_t ticks[] = {9'000'000, 9'800'000, 9'870'000, 9'876'000,
                                  9'876'500, 9'876'540, 9'876'543};
    for (std::size_t count = 1; count <= digits.size(); ++count)
        EXPECT_EQ(Parsed("2022-07-01T12:34:56." + digits.substr(0, count) + "Z"),
                  Noon + ticks[std::min<std::size_t>(count, 7) - 1])
            << count;
    for (std::size_t count = 1; count <= 30; ++count) {
        EXPECT_EQ(Parsed("2022-07-01T12:34:56." + std::string(count, '0') + "Z"), Noon) << count;
        EXPECT_EQ(
            Parsed("2022-07-01T12:34:56." + std::string(count - 1, '0') + "1Z"),
            Noon +
                (count <= 7 ? static_cast<std::int64_t>(std::stoll("1" + std::string(7 - count, '0'))) : 0))
            << count;
    }
}

TEST(ParseDateTimeTest, AVeryLongFractionIsMatchedWithoutDeepRecursion) {
    const std::string digits(1'000'000, '3');
    EXPECT_EQ(Parsed("2022-07-01T12:34:56." + digits + "Z"), Noon + 3'333'333);
    EXPECT_EQ(Parsed("2022-07-01T12:34:56." + digits), std::nullopt);
}

TEST(ParseDateTimeTest, AFieldOutOfRangeKeepsTheFieldsBeforeItAndZeroesTheRest) {
    const std::pair<const char*, const char*> cases[] = {
        // A month that was not read is January, a day that was not read is the day before its first.
        {"2022-13-15T12:34:56.5Z", "2021-12-31T00:00:00.5000000Z"},
        {"2022-00-15T12:34:56Z", "2021-12-31T00:00:00.0000000Z"},
        {"2022-99-99T99:99:99Z", "2021-12-31T00:00:00.0000000Z"},
        {"2022-12-15T12:34:56Z", "2022-12-15T12:34:56.0000000Z"},
        {"2022-01-15T12:34:56Z", "2022-01-15T12:34:56.0000000Z"},
        {"2022-07-32T12:34:56Z", "2022-06-30T00:00:00.0000000Z"},
        {"2022-07-00T12:34:56Z", "2022-06-30T00:00:00.0000000Z"},
        {"2022-01-00T12:34:56Z", "2021-12-31T00:00:00.0000000Z"},
        {"2022-07-31T12:34:56Z", "2022-07-31T12:34:56.0000000Z"},
        {"2022-07-15T24:34:56Z", "2022-07-15T00:00:00.0000000Z"},
        {"2022-07-15T23:34:56Z", "2022-07-15T23:34:56.0000000Z"},
        {"2022-07-15T12:60:56Z", "2022-07-15T12:00:00.0000000Z"},
        {"2022-07-15T12:59:56Z", "2022-07-15T12:59:56.0000000Z"},
        {"2022-07-15T12:34:61.25Z", "2022-07-15T12:34:00.2500000Z"},
        {"2022-07-15T12:34:99Z", "2022-07-15T12:34:00.0000000Z"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(Normalised(text), expected) << text;
}

TEST(ParseDateTimeTest, ADayOrSecondBeyondItsMonthOrMinuteRollsOver) {
    const std::pair<const char*, const char*> cases[] = {
        {"2022-02-31T12:34:56Z", "2022-03-03T12:34:56.0000000Z"},
        {"2024-02-31T12:34:56Z", "2024-03-02T12:34:56.0000000Z"},
        {"2024-02-29T12:34:56Z", "2024-02-29T12:34:56.0000000Z"},
        {"2023-02-29T12:34:56Z", "2023-03-01T12:34:56.0000000Z"},
        {"1900-02-29T00:00:00Z", "1900-03-01T00:00:00.0000000Z"},
        {"2000-02-29T00:00:00Z", "2000-02-29T00:00:00.0000000Z"},
        {"2022-04-31T12:34:56Z", "2022-05-01T12:34:56.0000000Z"},
        {"2022-07-15T23:59:60Z", "2022-07-16T00:00:00.0000000Z"},
        {"2022-12-31T23:59:60.75Z", "2023-01-01T00:00:00.7500000Z"},
        {"9999-12-31T23:59:60.9999999Z", "10000-01-01T00:00:00.9999999Z"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(Normalised(text), expected) << text;
}

TEST(DateTimeTest, EveryTickOfTheYears0000To9999SurvivesTheRoadThroughText) {
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 generator(seed);
    constexpr std::int64_t first = -62'167'219'200 * TicksPerSecond;
    constexpr std::int64_t last = 253'402'300'800 * TicksPerSecond - 1;
    std::uniform_int_distribution<std::int64_t> anyTick(first, last);
    std::vector<std::int64_t> cases{first, last, -1, 0, 1};
    for (int i = 0; i < 20'000; ++i)
        cases.push_back(anyTick(generator));
    for (const std::int64_t ticks : cases) {
        const std::string text = FormatDateTime(At(ticks));
        ASSERT_EQ(text.size(), 28u) << text;
        ASSERT_EQ(Parsed(text), ticks) << text;
    }
}

// MapDateTime

TimePoint MappedFrom(const std::string& json, TimePoint before, bool* present = nullptr,
                     Reading reading = Reading::Strict) {
    TimePoint value = before;
    ReadText(
        json, [&](MapperIf& mapper) { MapDateTime(mapper, nullptr, value, present); }, reading);
    return value;
}

TEST(MapDateTimeTest, WritesTheValueAsText) {
    TimePoint value = At(Noon + 5);
    ObjectOf object([&](MapperIf& mapper) { MapDateTime(mapper, "time", value, nullptr); });
    EXPECT_EQ(SerializeObject(object, nullptr), "{\n    \"time\": \"2022-07-01T12:34:56.0000005Z\"\n}");
    EXPECT_EQ(value, At(Noon + 5));
}

TEST(MapDateTimeTest, WritesAnAbsentValueAsNullAndLeavesIt) {
    TimePoint value = At(Noon);
    bool present = false;
    EXPECT_EQ(Written([&](MapperIf& mapper) { MapDateTime(mapper, nullptr, value, &present); }), "null");
    EXPECT_FALSE(present);
    EXPECT_EQ(value, At(Noon));
    present = true;
    EXPECT_EQ(Written([&](MapperIf& mapper) { MapDateTime(mapper, nullptr, value, &present); }),
              "\"2022-07-01T12:34:56.0000000Z\"");
}

TEST(MapDateTimeTest, ReadsTextIntoTheValue) {
    EXPECT_EQ(MappedFrom("\"2022-07-01 12:34:56Z\"", At(0)), At(Noon));
    for (const bool before : {false, true}) {
        bool present = before;
        EXPECT_EQ(MappedFrom("\"2022-07-01T12:34:56.5z\"", At(0), &present), At(Noon + 5'000'000));
        EXPECT_TRUE(present);
    }
}

TEST(MapDateTimeTest, TextThatIsNoDateTimeFailsNamingTheTag) {
    TimePoint value = At(Noon);
    EXPECT_EQ(ReadFailure("\"2022-07-01T12:34:56\"",
                          [&](MapperIf& mapper) { MapDateTime(mapper, nullptr, value, nullptr); }),
              "Unrecognized datetime format '2022-07-01T12:34:56'");
    ObjectOf object([&](MapperIf& mapper) { MapDateTime(mapper, "lastRefreshed", value, nullptr); });
    EXPECT_EQ(FailureOf([&] {
                  DeserializeObject(object, R"({"lastRefreshed":"2022-07-01T12:34:56+01:00"})", nullptr,
                                    true);
              }),
              "Unrecognized datetime format '2022-07-01T12:34:56+01:00' (tag: 'lastRefreshed')");
    EXPECT_EQ(FailureOf([&] { DeserializeObject(object, R"({"lastRefreshed":""})", nullptr, true); }),
              "Unrecognized datetime format '' (tag: 'lastRefreshed')");
    ObjectOf keyless([&](MapperIf& mapper) { MapDateTime(mapper, "", value, nullptr); });
    EXPECT_EQ(FailureOf([&] { DeserializeObject(keyless, R"({"":"soon"})", nullptr, true); }),
              "Unrecognized datetime format 'soon' (tag: '')");
    bool present = false;
    EXPECT_EQ(
        ReadFailure("\"soon\"", [&](MapperIf& mapper) { MapDateTime(mapper, nullptr, value, &present); }),
        "Unrecognized datetime format 'soon'");
    EXPECT_EQ(value, At(Noon));
}

TEST(MapDateTimeTest, TextEqualToTheCurrentValueIsNotParsedAtAll) {
    // The year has five digits, which no text that is parsed may have.
    const TimePoint far = At(2'534'023'008'000'000'000);
    EXPECT_EQ(MappedFrom("\"10000-01-01T00:00:00.0000000Z\"", far), far);
    EXPECT_EQ(ReadFailure("\"10000-01-01T00:00:00.0000000Z\"",
                          [](MapperIf& mapper) {
                              TimePoint value;
                              MapDateTime(mapper, nullptr, value, nullptr);
                          }),
              "Unrecognized datetime format '10000-01-01T00:00:00.0000000Z'");
}

TEST(MapDateTimeTest, EmptyTextIntoAnAbsentValueIsAcceptedAndChangesNothing) {
    bool present = false;
    EXPECT_EQ(MappedFrom("\"\"", At(Noon), &present), At(Noon));
    EXPECT_TRUE(present);
}

TEST(MapDateTimeTest, NullIntoAPresentValueSetsItToZero) {
    bool present = true;
    EXPECT_EQ(MappedFrom("null", At(Noon), &present), At(0));
    EXPECT_FALSE(present);
}

TEST(MapDateTimeTest, NullIntoAnAbsentValueLeavesIt) {
    bool present = false;
    EXPECT_EQ(MappedFrom("null", At(Noon), &present), At(Noon));
    EXPECT_FALSE(present);
}

TEST(MapDateTimeTest, AMissingRequiredFieldChangesNothingWhenNotStrict) {
    TimePoint value = At(Noon);
    ObjectOf object([&](MapperIf& mapper) { MapDateTime(mapper, "time", value, nullptr); });
    DeserializeObject(object, "{}", nullptr, false);
    EXPECT_EQ(value, At(Noon));
    EXPECT_EQ(FailureOf([&] { DeserializeObject(object, "{}", nullptr, true); }),
              "ERROR: Missing required field '.time' serialization_='{}'");
}

TEST(MapDateTimeTest, AMissingOptionalFieldThatWasPresentBecomesZero) {
    TimePoint value = At(Noon);
    bool present = true;
    ObjectOf object([&](MapperIf& mapper) { MapDateTime(mapper, "time", value, &present); });
    DeserializeObject(object, "{}", nullptr, true);
    EXPECT_FALSE(present);
    EXPECT_EQ(value, At(0));
}

TEST(MapDateTimeTest, ANumberIsATypeMismatchOfTheStringOverload) {
    EXPECT_EQ(ReadFailure("1656678896",
                          [](MapperIf& mapper) {
                              TimePoint value;
                              MapDateTime(mapper, nullptr, value, nullptr);
                          }),
              "ERROR: Expected type 'string' when processing '.' serialization_='1656678896'");
}

}  // namespace
}  // namespace Ombry::Tests
