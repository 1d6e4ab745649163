#pragma once

#include "ObjectMapping/MapperIf.h"
#include "Platform/Time.h"

#include <string>

namespace Ombry::ObjectMapping {

/// Maps a time point as text, with `name` and `present` as in `MapperIf::Field`. Text that is not a date-time
/// throws `std::runtime_error`; text equal to that of the current value is not parsed at all.
void MapDateTime(MapperIf& mapper, const char* name, TimePoint& value, bool* present);

/// UTC, as in "2022-07-01T12:34:56.1234567Z". A year beyond 9999 has five digits, one before 0 a sign: these
/// are not read back.
std::string FormatDateTime(TimePoint value);

/// Reads what `FormatDateTime` writes. Month, day and time may have a single digit each, the fraction, of
/// which seven digits count, may be missing, "T" may be a blank or "|", and "T" and "Z" may be small. A field
/// out of its range is no failure: it and all behind it, but for the fraction, count as 0. Day 0 is then the
/// one before the first of the month, month 0 January; 31 February is in March, second 60 in the next minute.
/// False if the text does not have that form; `value` then stays.
bool ParseDateTime(const std::string& text, TimePoint& value);

}  // namespace Ombry::ObjectMapping
