#pragma once

#include "ClientCommunications/IService.h"
#include "ClientCommunications/ServiceDto.h"

#include <typeinfo>

namespace Ombry::ClientCommunications {

/// A service made from its record, whatever the source of the record.
class Service : public IService {
public:
    explicit Service(ServiceDto dto) : dto(std::move(dto)) {}

    std::string GetEndpointUrl() const override { return dto.endpointUrl; }
    std::string GetEndpointCertificate() const override { return dto.endpointCert; }
    std::string GetId() const override { return dto.id; }
    std::string GetHostname() const override { return dto.serviceHostname; }
    std::string GetNamespace() const override { return dto.serviceNamespace; }
    std::string GetName() const override { return dto.serviceName; }
    /// A repeated key keeps its last value.
    std::map<std::string, std::string> GetProperties() const override;
    bool Equals(const IService& other) const override;

    /// The service itself, if it is of this very class: then it never changes, and can lend its texts.
    static const Service* Of(const IService& service) {
        return typeid(service) == typeid(Service) ? static_cast<const Service*>(&service) : nullptr;
    }
    const ServiceDto& Record() const { return dto; }

private:
    const ServiceDto dto;
};

/// A text of a service: lent where it is a `Service`, copied where it is of another class. It must not
/// outlive the service.
class ServiceText {
public:
    ServiceText(const IService& service, std::string (IService::*get)() const, std::string ServiceDto::*field)
        : ServiceText(Service::Of(service), service, get, field) {}
    ServiceText(const ServiceText&) = delete;
    ServiceText& operator=(const ServiceText&) = delete;

    const std::string& Get() const { return text; }

private:
    ServiceText(const Service* lender, const IService& service, std::string (IService::*get)() const,
                std::string ServiceDto::*field)
        : text(lender ? lender->Record().*field : copy = (service.*get)()) {}

    std::string copy;
    const std::string& text;
};

}  // namespace Ombry::ClientCommunications
