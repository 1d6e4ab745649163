#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <cstddef>
#include <string_view>

namespace Ombry::Platform {

/// Conversion between UTF-8 and wide text in the shape of MultiByteToWideChar and WideCharToMultiByte with
/// code page 65001 and flags 0: invalid input becomes U+FFFD and is no failure. Wide text holds UTF-16 units
/// on every platform; a single wchar_t above 0xFFFF is accepted on the way out. A null `out` measures: the
/// result is the number of units or bytes needed. A result below 1 is a failure for the caller, who prints
/// `error`.
class ITextConversion {
public:
    struct Count {
        int count = 0;
        int error = 0;
    };

    virtual ~ITextConversion() = default;
    virtual Count Utf8ToWide(std::string_view text, wchar_t* out, std::size_t room) = 0;
    virtual Count WideToUtf8(std::wstring_view text, char* out, std::size_t room) = 0;
};

template <>
ITextConversion& Production<ITextConversion>();

inline ITextConversion& TextConversion() {
    return Current<ITextConversion>();
}

}  // namespace Ombry::Platform
