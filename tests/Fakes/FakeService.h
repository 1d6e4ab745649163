#pragma once

#include "ClientCommunications/Impl/Service.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// A service of a program's own class, which the libraries know by its interface alone.
class ForeignService : public ClientCommunications::Service {
public:
    using Service::Service;
};

/// A service of that id; its name is "name of ID", its namespace "namespace of ID", its URL
/// "https://ID.example:8181".
template <class Class = ClientCommunications::Service>
std::shared_ptr<ClientCommunications::IService> MakeService(const std::string& id) {
    ClientCommunications::ServiceDto dto;
    dto.id = id;
    dto.serviceName = "name of " + id;
    dto.serviceNamespace = "namespace of " + id;
    dto.serviceHostname = id + ".example";
    dto.endpointUrl = "https://" + id + ".example:8181";
    return std::make_shared<Class>(dto);
}

inline std::list<std::shared_ptr<ClientCommunications::IService>> MakeServices(
    const std::vector<std::string>& ids) {
    std::list<std::shared_ptr<ClientCommunications::IService>> services;
    for (const std::string& id : ids)
        services.push_back(MakeService(id));
    return services;
}

/// The ids of services, in their order.
inline std::vector<std::string> Ids(
    const std::list<std::shared_ptr<ClientCommunications::IService>>& services) {
    std::vector<std::string> ids;
    for (const auto& service : services)
        ids.push_back(service->GetId());
    return ids;
}

}  // namespace Ombry::Tests
