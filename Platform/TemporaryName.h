#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace Ombry::Platform {

/// What a save has not finished is called ".ombry-", 16 lower-case hexadecimal digits, ".tmp". The name does
/// not grow with the target's, which may already be as long as the system allows.
/// @{
inline constexpr std::string_view TemporaryNameBegin = ".ombry-";
inline constexpr std::string_view TemporaryNameEnd = ".tmp";
inline constexpr std::size_t TemporaryNameDigits = 16;
/// @}

/// Whether a file of that name is one that a save has not finished, or that a crash has left of it.
template <class Char>
bool IsTemporaryName(std::basic_string_view<Char> name) {
    constexpr std::size_t front = TemporaryNameBegin.size() + TemporaryNameDigits;
    if (name.size() != front + TemporaryNameEnd.size()) return false;
    const auto isDigit = [](Char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
    return std::equal(TemporaryNameBegin.begin(), TemporaryNameBegin.end(), name.begin()) &&
           std::all_of(name.begin() + TemporaryNameBegin.size(), name.begin() + front, isDigit) &&
           std::equal(TemporaryNameEnd.begin(), TemporaryNameEnd.end(), name.begin() + front);
}

}  // namespace Ombry::Platform
