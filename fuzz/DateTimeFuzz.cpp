// Invariant: a text is either refused, and the value stays, or gives a value whose text is the value's only
// name: it reads back to the same ticks, as long as the year keeps its four digits. What is accepted consists
// of nothing but digits and the marks of the form, and ends with Z or z.

#include "ObjectMapping/DateTime.h"
#include "fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string>

using namespace Ombry;
using namespace Ombry::ObjectMapping;
using Ombry::Fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const TimePoint untouched(Duration(-77));
    TimePoint value = untouched;
    if (!ParseDateTime(text, value)) {
        Require(value == untouched);
        return 0;
    }
    Require(text.find_first_not_of("0123456789-:.TtZz| ") == std::string::npos);
    Require(text.back() == 'Z' || text.back() == 'z');

    const std::string written = FormatDateTime(value);
    TimePoint copy = untouched;
    // Day 0 of the year 0000 is in the year before, second 60 of 9999 in the year behind.
    const bool fourDigits = written.size() == 28 && written.front() != '-';
    Require(ParseDateTime(written, copy) == fourDigits);
    Require(!fourDigits || copy == value);
    return 0;
}
