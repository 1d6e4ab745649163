#pragma once

#include "Platform/Linux/OpenSSL.h"

#include <openssl/x509.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Ombry::Platform::Linux {

struct OutlineFields;
void FreeOutline(OutlineFields* fields);

/// A certificate taken apart as OpenSSL's own parser does it, which takes and refuses the same bytes, but for
/// its key, which stays bytes: to decode one, that parser looks for its decoders first, which takes as long
/// as a short program does in all.
class CertificateOutline {
public:
    /// Nothing for anything but one certificate. The error queue stays empty; so it does below.
    static std::optional<CertificateOutline> FromDer(std::span<const std::uint8_t> encoded);

    /// DER bytes; empty if they cannot be made.
    std::string Encoded() const;
    const X509_NAME* Subject() const;
    const ASN1_TIME* NotBefore() const;
    const ASN1_TIME* NotAfter() const;

    struct Key {
        std::string type;  ///< "RSA" or "EC"
        int bits = 0;
    };
    /// Nothing for kinds of keys that are seldom met; to know these the key has to be decoded.
    std::optional<Key> CommonKey() const;

private:
    friend struct StoredCertificate;
    explicit CertificateOutline(OutlineFields* fields) : fields(fields) {}
    static std::optional<CertificateOutline> From(const unsigned char** at, long length);

    Owned<OutlineFields, FreeOutline> fields;
};

/// What an entry of a certificate store holds.
struct StoredCertificate {
    std::string encoded;               ///< DER
    std::optional<std::string> alias;  ///< its friendly name, UTF-8

    /// Of PEM with or without a friendly name; nothing for anything else, also for what asks for a pass
    /// phrase, or if there is no memory. The error queue stays empty.
    static std::optional<StoredCertificate> FromPem(std::string_view text);
};

}  // namespace Ombry::Platform::Linux
