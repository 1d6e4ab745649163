#pragma once

#include <string>

namespace Ombry::Platform {

// RapidJSON adds the digits behind the point to an exponent, both in an int, and looks for a power of ten
// where the sum has wrapped to: 0.0000000000e-2147483639 would read outside of its table. It bears exponents
// of up to nine digits in texts of up to `LongestTextOfNumbers`.

/// Bytes of a text whose numbers have so few digits that the library can count them beside such an exponent.
inline constexpr std::size_t LongestTextOfNumbers = std::size_t{1} << 30;

/// Whether the number at `text`, which ends with a NUL, has an exponent that the library does not bear. False
/// where no number stands.
bool HasLongExponent(const char* text) noexcept;

/// Puts 999999999 in the place of each such exponent, behind zeros, so that no offset moves: what is beyond
/// all that a double holds stays beyond it. What stands in strings stays.
void CutLongExponents(std::string& text) noexcept;

}  // namespace Ombry::Platform
