#pragma once

#include "Platform/Result.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace Ombry::Platform::Linux {

/// Base64 of RFC 4648, section 4, in the manner of `ICertificates`. OpenSSL's block decoder counts padding as
/// data and refuses line breaks.
ValueOr<std::uint32_t> EncodeBase64(std::span<const std::uint8_t> binary, char* text, std::uint32_t room);
ValueOr<std::uint32_t> DecodeBase64(std::string_view text, std::uint8_t* binary, std::uint32_t room);

}  // namespace Ombry::Platform::Linux
