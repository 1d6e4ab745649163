#pragma once

#include "Platform/Result.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Ombry::Platform::Windows {

/// The number of characters that `EncodeBase64` would write, which must be countable in 32 bits; reads
/// nothing.
ValueOr<std::uint32_t> EncodedLength(std::span<const std::uint8_t> binary);

/// Base64 text without line breaks. Fails as `EncodedLength` does.
ValueOr<std::string> EncodeBase64(std::span<const std::uint8_t> binary);

/// The bytes of a Base64 text. White space is passed over; everything else that `EncodeBase64` would not have
/// written is a failure, as is a text of nothing.
ValueOr<std::string> DecodeBase64(std::string_view text);

}  // namespace Ombry::Platform::Windows
