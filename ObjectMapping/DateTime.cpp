#include "ObjectMapping/DateTime.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace Ombry::ObjectMapping {
namespace {

constexpr std::size_t FractionDigits = 7;

constexpr bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

// Walks a text from left to right; each step that matches moves it on.
class Matcher {
public:
    explicit Matcher(std::string_view text) : rest(text) {}

    bool AtEnd() const { return rest.empty(); }

    bool OneOf(std::string_view bytes) {
        if (rest.empty() || bytes.find(rest.front()) == std::string_view::npos) return false;
        rest.remove_prefix(1);
        return true;
    }

    // As many digits as there are, which must be `atLeast` to `atMost`.
    bool Digits(std::size_t atLeast, std::size_t atMost, std::string_view& digits) {
        std::size_t count = 0;
        while (count < rest.size() && IsDigit(rest[count]))
            ++count;
        if (count < atLeast || count > atMost) return false;
        digits = rest.substr(0, count);
        rest.remove_prefix(count);
        return true;
    }

    bool Number(std::size_t atLeast, std::size_t atMost, int& number) {
        std::string_view digits;
        if (!Digits(atLeast, atMost, digits)) return false;
        number = 0;
        for (const char digit : digits)
            number = number * 10 + (digit - '0');
        return true;
    }

private:
    std::string_view rest;
};

struct Fields {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    std::string_view fraction;
};

// The language is that of the case-insensitive pattern
//   ([0-9]{4}-[0-9]{1,2}-[0-9]{1,2})[T| ]([0-9]{1,2}:[0-9]{1,2}:[0-9]{1,2})(?:\.([0-9]+))?Z
// matched by hand: a regular expression engine that recurses once a character is no match for hostile
// lengths. The bar among the separators is part of what is accepted.
bool Match(std::string_view text, Fields& fields) {
    Matcher matcher(text);
    if (!matcher.Number(4, 4, fields.year) || !matcher.OneOf("-")) return false;
    if (!matcher.Number(1, 2, fields.month) || !matcher.OneOf("-")) return false;
    if (!matcher.Number(1, 2, fields.day) || !matcher.OneOf("Tt| ")) return false;
    if (!matcher.Number(1, 2, fields.hour) || !matcher.OneOf(":")) return false;
    if (!matcher.Number(1, 2, fields.minute) || !matcher.OneOf(":")) return false;
    if (!matcher.Number(1, 2, fields.second)) return false;
    if (matcher.OneOf(".") && !matcher.Digits(1, text.size(), fields.fraction)) return false;
    return matcher.OneOf("Zz") && matcher.AtEnd();
}

// A field out of its range is no failure: the fields before the first such field are kept, that one and all
// behind it count as 0.
void KeepFieldsInRange(Fields& fields) {
    struct Range {
        int& field;
        int low, high;
    };
    const std::array<Range, 5> ranges{{{fields.month, 1, 12},
                                       {fields.day, 1, 31},
                                       {fields.hour, 0, 23},
                                       {fields.minute, 0, 59},
                                       {fields.second, 0, 60}}};
    bool good = true;
    for (const Range& range : ranges) {
        good = good && range.field >= range.low && range.field <= range.high;
        if (!good) range.field = 0;
    }
}

// Seconds since 1970 of fields in UTC, normalised: day 0 is the day before the first of the month, 31 Feb is
// in March, second 60 is in the next minute. Month 0 stands for January, as a month that was not read.
std::int64_t ToSeconds(const Fields& fields) {
    const std::chrono::year_month_day first{
        std::chrono::year(fields.year),
        std::chrono::month(fields.month == 0 ? 1u : static_cast<unsigned>(fields.month)),
        std::chrono::day(1)};
    const auto day = std::chrono::sys_days(first) + std::chrono::days(fields.day - 1);
    const auto time = day + std::chrono::hours(fields.hour) + std::chrono::minutes(fields.minute) +
                      std::chrono::seconds(fields.second);
    return time.time_since_epoch().count();
}

// Only the first seven digits count: the rest is less than a tick.
std::int64_t ToTicks(std::string_view fraction) {
    std::int64_t ticks = 0;
    for (std::size_t i = 0; i < FractionDigits; ++i)
        ticks = ticks * 10 + (i < fraction.size() ? fraction[i] - '0' : 0);
    return ticks;
}

// A number that is not negative, with zeros in front, up to that width.
void AppendNumber(std::string& text, long long number, std::size_t width) {
    std::array<char, std::numeric_limits<long long>::digits10 + 1> digits;
    std::size_t first = digits.size();
    do {
        digits[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0 || digits.size() - first < width);
    text.append(&digits[first], digits.size() - first);
}

}  // namespace

void MapDateTime(MapperIf& mapper, const char* name, TimePoint& value, bool* present) {
    const bool wasPresent = !present || *present;
    const std::string before = wasPresent ? FormatDateTime(value) : std::string();
    std::string after = before;
    mapper.Field(name, after, present);
    if (!present || *present) {
        // A writer leaves the text alone; so does a reader that met the same text or, not strict, none at
        // all.
        if (after == before || ParseDateTime(after, value)) return;
        std::string message = "Unrecognized datetime format '" + after + "'";
        if (name) message.append(" (tag: '").append(name).append("')");
        throw std::runtime_error(message);
    }
    if (wasPresent) value = TimePoint();
}

std::string FormatDateTime(TimePoint value) {
    // Rounding down, also before 1970, so that the fraction is never negative.
    const auto seconds = std::chrono::floor<std::chrono::seconds>(value);
    const auto days = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day date(days);
    const std::chrono::hh_mm_ss time(seconds - days);
    long long fraction = value.time_since_epoch().count() % TicksPerSecond;
    if (fraction < 0) fraction += TicksPerSecond;
    const int year = static_cast<int>(date.year());
    std::string text(year < 0 ? "-" : "");
    text.reserve(32);
    AppendNumber(text, std::abs(year), year < 0 ? 3 : 4);
    AppendNumber(text += '-', static_cast<unsigned>(date.month()), 2);
    AppendNumber(text += '-', static_cast<unsigned>(date.day()), 2);
    AppendNumber(text += 'T', time.hours().count(), 2);
    AppendNumber(text += ':', time.minutes().count(), 2);
    AppendNumber(text += ':', time.seconds().count(), 2);
    AppendNumber(text += '.', fraction, FractionDigits);
    return text += 'Z';
}

bool ParseDateTime(const std::string& text, TimePoint& value) {
    Fields fields;
    if (!Match(text, fields)) return false;
    KeepFieldsInRange(fields);
    value = TimePoint(Duration(ToSeconds(fields) * TicksPerSecond + ToTicks(fields.fraction)));
    return true;
}

}  // namespace Ombry::ObjectMapping
