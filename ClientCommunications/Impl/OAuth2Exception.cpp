#include "ClientCommunications/Impl/OAuth2Exception.h"

namespace Ombry::ClientCommunications {

void OAuth2Exception::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("error", error, nullptr);
    mapper.Field("error_description", errorDescription, nullptr);
    mapper.Field("error_uri", errorUri, nullptr);
}

void OAuth2Exception::Reset() {
    *this = OAuth2Exception();
}

}  // namespace Ombry::ClientCommunications
