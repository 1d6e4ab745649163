#include "ClientCommunications/Impl/Service.h"

#include <typeinfo>

namespace Ombry::ClientCommunications {

std::map<std::string, std::string> Service::GetProperties() const {
    std::map<std::string, std::string> properties;
    for (const ServiceDto::Property& property : dto.properties)
        properties[property.key] = property.value;
    return properties;
}

const ServiceDto& Service::RecordOf(const IService& service, std::optional<ServiceDto>& room) {
    if (typeid(service) == typeid(Service)) return static_cast<const Service&>(service).dto;
    ServiceDto& record = room.emplace();
    record.serviceHostname = service.GetHostname();
    record.serviceNamespace = service.GetNamespace();
    record.id = service.GetId();
    record.serviceName = service.GetName();
    record.endpointUrl = service.GetEndpointUrl();
    record.endpointCert = service.GetEndpointCertificate();
    return record;
}

bool Service::Equals(const IService& other) const {
    return GetId() == other.GetId() && GetEndpointUrl() == other.GetEndpointUrl() &&
           GetHostname() == other.GetHostname() && GetName() == other.GetName() &&
           GetNamespace() == other.GetNamespace();
}

}  // namespace Ombry::ClientCommunications
