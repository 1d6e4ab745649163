#pragma once

#include "ObjectMapping/MapperIf.h"
#include "Platform/Time.h"

#include <string>

namespace Ombry::ObjectMapping {

/// Maps a time point as text, with `name` and `present` as in `MapperIf::Field`. Text that is not a date-time
/// throws `std::runtime_error`; text equal to that of the current value is not parsed at all.
void MapDateTime(MapperIf& mapper, const char* name, TimePoint& value, bool* present);

/// UTC, as in "2022-07-01T12:34:56.1234567Z".
std::string FormatDateTime(TimePoint value);

/// False if the text does not have the form of a date-time; `value` then stays.
bool ParseDateTime(const std::string& text, TimePoint& value);

}  // namespace Ombry::ObjectMapping
