#include "ClientCommunications/Impl/Service.h"

namespace Ombry::ClientCommunications {

std::map<std::string, std::string> Service::GetProperties() const {
    std::map<std::string, std::string> properties;
    for (const ServiceDto::Property& property : dto.properties)
        properties[property.key] = property.value;
    return properties;
}

bool Service::Equals(const IService& other) const {
    return GetId() == other.GetId() && GetEndpointUrl() == other.GetEndpointUrl() &&
           GetHostname() == other.GetHostname() && GetName() == other.GetName() &&
           GetNamespace() == other.GetNamespace();
}

}  // namespace Ombry::ClientCommunications
