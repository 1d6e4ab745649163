#pragma once

#include <string>

#include "ObjectMapping/MapperIf.h"

namespace Ombry::ClientCommunications {

/// The success response of a token request (RFC 6749, section 5.1).
class OAuth2Token : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string tokenType;
    std::string accessToken;
    unsigned long expiresIn = 0;  ///< seconds
    std::string scope;
};

}  // namespace Ombry::ClientCommunications
