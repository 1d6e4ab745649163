#pragma once

#include "Platform/Time.h"

#include <string>

namespace Ombry::Doctor {

/// A word for bash that stands for exactly these bytes, and that shows as one line of plain letters.
std::string Quoted(const std::string& text);

/// Text that a terminal shows and does not obey: what is no UTF-8, and what controls, becomes U+FFFD.
std::string Printable(const std::string& text);

/// Text that is UTF-8: what is none becomes U+FFFD, and all else stays.
std::string Utf8Of(const std::string& text);

/// A length of time in one unit, as in "5 min" or "3 days".
std::string LengthText(Duration length);

/// UTC to the second, as in "2022-07-01T12:34:56Z".
std::string TimeText(TimePoint time);

/// "1 file", "2 files".
std::string CountText(std::size_t count, const std::string& noun);

}  // namespace Ombry::Doctor
