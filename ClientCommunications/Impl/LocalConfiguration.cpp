#include "ClientCommunications/LocalConfiguration.h"

namespace Ombry::ClientCommunications {

void OmbrySecurityConfig::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("ssdsUri", ssdsUri, nullptr);
}

void OmbrySecurityConfig::Reset() {
    *this = OmbrySecurityConfig();
}

void LocalServiceStorageDto::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("Version", version, nullptr);
    mapper.Field("Guid", guid, nullptr);
}

void LocalServiceStorageDto::Reset() {
    *this = LocalServiceStorageDto();
}

}  // namespace Ombry::ClientCommunications
