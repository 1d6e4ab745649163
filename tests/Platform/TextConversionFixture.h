#pragma once

#include "Platform/ITextConversion.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace Ombry::Tests {

inline std::wstring Units(std::initializer_list<unsigned> units) {
    std::wstring text;
    for (const unsigned unit : units)
        text += static_cast<wchar_t>(unit);
    return text;
}

/// Measures, converts into exactly that room, and holds both counts and the bytes behind the room.
inline std::wstring ToWide(std::string_view text) {
    auto& conversion = Platform::Production<Platform::ITextConversion>();
    const auto measured = conversion.Utf8ToWide(text, nullptr, 0);
    EXPECT_EQ(measured.error, 0);
    std::wstring wide(static_cast<std::size_t>(measured.count) + 1, L'#');
    const auto converted = conversion.Utf8ToWide(text, wide.data(), static_cast<std::size_t>(measured.count));
    EXPECT_EQ(converted.count, measured.count);
    EXPECT_EQ(converted.error, 0);
    EXPECT_EQ(wide.back(), L'#');
    wide.pop_back();
    return wide;
}

inline std::string ToUtf8(std::wstring_view text) {
    auto& conversion = Platform::Production<Platform::ITextConversion>();
    const auto measured = conversion.WideToUtf8(text, nullptr, 0);
    EXPECT_EQ(measured.error, 0);
    std::string bytes(static_cast<std::size_t>(measured.count) + 1, '#');
    const auto converted =
        conversion.WideToUtf8(text, bytes.data(), static_cast<std::size_t>(measured.count));
    EXPECT_EQ(converted.count, measured.count);
    EXPECT_EQ(converted.error, 0);
    EXPECT_EQ(bytes.back(), '#');
    bytes.pop_back();
    return bytes;
}

}  // namespace Ombry::Tests
