#pragma once

#include <string>
#include <string_view>

namespace Ombry::Platform::Windows {

/// Text of the system in UTF-8, and the way back, as `ITextConversion` converts; empty text stays empty.
std::string Utf8(std::wstring_view wide);
std::wstring Wide(std::string_view text);

}  // namespace Ombry::Platform::Windows
