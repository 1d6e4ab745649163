#pragma once

#include "Platform/ICertificates.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Ombry::Tests {

inline std::string DerOf(const Platform::CertificateContext& context) {
    return {reinterpret_cast<const char*>(context.encoded), context.encodedLength};
}

inline std::span<const std::uint8_t> BytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A view: `der` has to outlive it.
inline Platform::CertificateContext ContextOf(const std::string& der) {
    return {Platform::CertificateEncoding, BytesOf(der).data(), static_cast<std::uint32_t>(der.size())};
}

}  // namespace Ombry::Tests
