#pragma once

#include "Platform/ICertificates.h"

#include <cstdint>
#include <span>
#include <string>

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

}  // namespace Ombry::Platform
