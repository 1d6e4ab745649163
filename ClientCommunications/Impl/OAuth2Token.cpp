#include "ClientCommunications/OAuth2Token.h"

namespace Ombry::ClientCommunications {

void OAuth2Token::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("token_type", tokenType, nullptr);
    mapper.Field("access_token", accessToken, nullptr);
    mapper.Field("expires_in", expiresIn, nullptr);
    mapper.Field("scope", scope, nullptr);
}

void OAuth2Token::Reset() {
    *this = OAuth2Token();
}

}  // namespace Ombry::ClientCommunications
