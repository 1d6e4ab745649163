#include "ClientCommunications/OAuth2Token.h"

#include "Platform/SecureWipe.h"

namespace Ombry::ClientCommunications {

OAuth2Token::~OAuth2Token() {
    Platform::SecureWipe(accessToken);
}

void OAuth2Token::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("token_type", tokenType, nullptr);
    mapper.Field("access_token", accessToken, nullptr);
    mapper.Field("expires_in", expiresIn, nullptr);
    mapper.Field("scope", scope, nullptr);
}

void OAuth2Token::Reset() {
    Platform::SecureWipe(accessToken);  // the assignment may keep the memory
    *this = OAuth2Token();
}

}  // namespace Ombry::ClientCommunications
