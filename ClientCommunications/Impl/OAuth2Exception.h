#pragma once

#include "ObjectMapping/MapperIf.h"

#include <stdexcept>
#include <string>

namespace Ombry::ClientCommunications {

/// The error document of a token request (RFC 6749, section 5.2).
class OAuth2Exception : public ObjectMapping::ObjectIf, public std::runtime_error {
public:
    OAuth2Exception() : ObjectIf(), std::runtime_error("OAuth2 exception") {}

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string error;
    std::string errorDescription;
    std::string errorUri;
};

}  // namespace Ombry::ClientCommunications
