#pragma once

#include "ClientCommunications/IService.h"
#include "ClientCommunications/ServiceDto.h"

#include <optional>

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

    /// The record of a service; that of one which is not of this very class is made in `room`.
    static const ServiceDto& RecordOf(const IService& service, std::optional<ServiceDto>& room);

private:
    const ServiceDto dto;
};

}  // namespace Ombry::ClientCommunications
