#pragma once

#include <string>
#include <string_view>

namespace Ombry::ObjectMapping::Impl {

/// UTF-8 to UTF-16 units, two wide characters for a letter beyond the basic plane on every platform. Invalid
/// input becomes U+FFFD. A failure of the platform is a `std::runtime_error` with its error number.
std::wstring ConvertFromUTF8(std::string_view text);

/// The way back; a single wide character above 0xFFFF is accepted like the pair that stands for it.
std::string ConvertToUTF8(std::wstring_view text);

}  // namespace Ombry::ObjectMapping::Impl
