#pragma once

#include <string>

namespace OmbryZephCore {

/// How the name of a server appears on the wire and in certificates.
struct ZephOpenSSLServerName {
    /// Takes a name or an IP literal as it stands in a URL: brackets, an IPv6 zone and one trailing dot go,
    /// since no certificate holds them.
    explicit ZephOpenSSLServerName(const std::string& targetName);

    std::string m_Text;
    bool m_IsAddress = false;  ///< an IPv4 or IPv6 literal

    /// Whether the name may be sent in the ClientHello: a host name of 1 to 255 bytes (RFC 6066, section 3).
    bool CanBeSent() const;

    /// Whether a certificate can be checked against it. The library takes an empty name for "no check", and a
    /// leading dot for "any sub-domain".
    bool CanBeChecked() const;
};

}  // namespace OmbryZephCore
