#include "Platform/Windows/SystemCertificate.h"

#include <limits>

namespace Ombry::Platform::Windows {
namespace {

// Whether this is one DER element (X.690, section 8.1.3) from end to end, as far as its length says: the
// system's parser passes over what follows it.
bool IsOneElement(std::span<const std::uint8_t> encoded) {
    if (encoded.size() < 2) return false;
    if (encoded[1] < 0x80) return encoded.size() - 2 == encoded[1];
    const std::size_t octets = encoded[1] & 0x7F;
    if (octets > sizeof(std::uint32_t) || encoded.size() - 2 < octets) return false;
    std::uint64_t length = 0;
    for (const std::uint8_t octet : encoded.subspan(2, octets))
        length = length << 8 | octet;
    return encoded.size() - 2 - octets == length;
}

}  // namespace

SystemCertificate ParseCertificate(std::span<const std::uint8_t> encoded) {
    if (!IsOneElement(encoded) || encoded.size() > std::numeric_limits<DWORD>::max()) {
        SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
        return nullptr;
    }
    return SystemCertificate(CertCreateCertificateContext(CertificateEncoding, encoded.data(),
                                                          static_cast<DWORD>(encoded.size())));
}

}  // namespace Ombry::Platform::Windows
