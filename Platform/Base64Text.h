#pragma once

#include "Platform/ICertificates.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Ombry::Platform {

/// `binary` in the Base64 of `ICertificates`, which is asked twice: for the length, and for the text.
inline ValueOr<std::string> Base64Text(std::span<const std::uint8_t> binary) {
    const ValueOr<std::uint32_t> size = Certificates().BinaryToBase64(binary, nullptr, 0);
    if (!size) return Result::Failure(size.Error());
    std::string text(*size, '\0');
    const ValueOr<std::uint32_t> written = Certificates().BinaryToBase64(binary, text.data(), *size);
    if (!written) return Result::Failure(written.Error());
    return text;
}

/// The way back, in the same two steps.
inline ValueOr<std::string> BytesOfBase64(std::string_view text) {
    const ValueOr<std::uint32_t> size = Certificates().Base64ToBinary(text, nullptr, 0);
    if (!size) return Result::Failure(size.Error());
    std::string bytes(*size, '\0');
    auto* const room = reinterpret_cast<std::uint8_t*>(bytes.data());
    const ValueOr<std::uint32_t> written = Certificates().Base64ToBinary(text, room, *size);
    if (!written) return Result::Failure(written.Error());
    return bytes;
}

}  // namespace Ombry::Platform
