#pragma once

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/SecretBuffer.h"

namespace Ombry::ClientCommunications {

/// What stands for a token in the header; the caller wipes it.
inline std::string BearerValueOf(const std::string& token) {
    return "Bearer " + token;
}

/// Puts a token on a request (RFC 6750, section 2.1); the request's copy is the only one that stays.
inline void SetBearerHeader(IServiceRequest& request, const std::string& token) {
    std::string value = BearerValueOf(token);
    const ScopedWipe wipe(value);
    request.SetHeader(NameOf(KnownHeader::Authorization), value);
}

}  // namespace Ombry::ClientCommunications
