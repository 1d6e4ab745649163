#pragma once

#include "Sandbox/Identity.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Ombry::Sandbox {

struct TokenClaims {
    std::string id;
    std::string subject;       ///< "user:NAME" or a client's id
    std::string serviceName;   ///< the service that the token is for
    std::int64_t expires = 0;  ///< seconds since 1970
};

/// A JSON Web Token (RFC 7519) signed with ES256 by the service's key.
std::string SignToken(const TokenClaims& claims, std::int64_t now, const Identity& identity);

/// The claims of a token that this key signed and that has not expired; nothing for any other text.
std::optional<TokenClaims> VerifyToken(const std::string& token, std::int64_t now, const Identity& identity);

}  // namespace Ombry::Sandbox
