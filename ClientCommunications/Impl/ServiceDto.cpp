#include "ClientCommunications/ServiceDto.h"

#include "ObjectMapping/ListArray.h"

namespace Ombry::ClientCommunications {

void ServiceDto::Property::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("key", key, nullptr);
    mapper.Field("value", value, nullptr);
}

void ServiceDto::Property::Reset() {
    *this = Property();
}

void ServiceDto::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("serviceHostname", serviceHostname, nullptr);
    mapper.Field("serviceNamespace", serviceNamespace, nullptr);
    mapper.Field("id", id, nullptr);
    mapper.Field("serviceName", serviceName, nullptr);
    mapper.Field("endpointUrl", endpointUrl, nullptr);
    mapper.Field("endpointCert", endpointCert, nullptr);
    ObjectMapping::ListArray propertyArray(properties);
    mapper.Field("properties", propertyArray, nullptr);
}

void ServiceDto::Reset() {
    *this = ServiceDto();
}

}  // namespace Ombry::ClientCommunications
