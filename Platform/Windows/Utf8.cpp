#include "Platform/Windows/Utf8.h"

#include "Platform/ITextConversion.h"

#include <algorithm>

namespace Ombry::Platform::Windows {

std::string Utf8(std::wstring_view wide) {
    std::string text(wide.size() * 3, '\0');  // never more than three bytes for a unit
    const auto converted = Production<ITextConversion>().WideToUtf8(wide, text.data(), text.size());
    text.resize(static_cast<std::size_t>(std::max(converted.count, 0)));
    return text;
}

std::wstring Wide(std::string_view text) {
    std::wstring wide(text.size(), L'\0');  // never more units than bytes
    const auto converted = Production<ITextConversion>().Utf8ToWide(text, wide.data(), wide.size());
    wide.resize(static_cast<std::size_t>(std::max(converted.count, 0)));
    return wide;
}

}  // namespace Ombry::Platform::Windows
