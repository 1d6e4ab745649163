#pragma once

#include "ObjectMapping/MapperIf.h"

#include <string>

namespace Ombry::ClientCommunications {

/// The success response of a token request (RFC 6749, section 5.1). The token is wiped with the object.
/// Record inside: no installed function takes or gives it.
class OAuth2Token : public ObjectMapping::ObjectIf {
public:
    OAuth2Token() = default;
    ~OAuth2Token() override;
    OAuth2Token(const OAuth2Token&) = default;
    OAuth2Token(OAuth2Token&&) = default;
    OAuth2Token& operator=(const OAuth2Token&) = default;
    OAuth2Token& operator=(OAuth2Token&&) = default;

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string tokenType;
    std::string accessToken;
    unsigned long expiresIn = 0;  ///< seconds
    std::string scope;
};

}  // namespace Ombry::ClientCommunications
