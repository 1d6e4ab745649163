#pragma once

#include "Platform/ICertificates.h"
#include "Platform/Linux/OpenSSL.h"

#include <openssl/x509.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Ombry::Platform::Linux {

using X509Pointer = Owned<X509, X509_free>;

/// The certificate of exactly these DER bytes; null for anything else. The error queue stays empty.
X509Pointer ParseDer(std::span<const std::uint8_t> encoded);

/// The certificate's DER bytes; empty if it cannot be encoded.
std::string EncodeDer(const X509* certificate);

/// A store entry in PEM, with or without a friendly name; null for anything else. Never asks for a pass
/// phrase.
X509Pointer ParsePem(std::string_view text);

/// A store entry: PEM "TRUSTED CERTIFICATE". Empty if it cannot be written.
std::string EncodePem(X509* certificate);

/// SHA-256 of the DER bytes as lower-case hexadecimal text.
std::string Fingerprint(std::string_view encoded);

inline std::span<const std::uint8_t> BytesOf(const CertificateContext& context) {
    return {context.encoded, context.encodedLength};
}

/// A view of the DER bytes, valid as long as they are.
inline CertificateContext ContextOf(std::string_view encoded) {
    return {CertificateEncoding, reinterpret_cast<const std::uint8_t*>(encoded.data()),
            static_cast<std::uint32_t>(encoded.size())};
}

}  // namespace Ombry::Platform::Linux
