#include "ClientCommunications/Impl/FoundServices.h"

#include "ClientCommunications/Impl/Service.h"
#include "Platform/IRandom.h"

#include <algorithm>
#include <random>
#include <vector>

namespace Ombry::ClientCommunications {
namespace {

using Services = std::list<std::shared_ptr<IService>>;

Services MakeServices(std::list<ServiceDto>& dtos) {
    Services services;
    for (ServiceDto& dto : dtos)
        services.push_back(std::make_shared<Service>(std::move(dto)));
    return services;
}

Services Shuffled(const Services& services) {
    std::vector<std::shared_ptr<IService>> order(services.begin(), services.end());
    std::mt19937 generator(Platform::Random().SeedWord());
    std::shuffle(order.begin(), order.end(), generator);
    return Services(order.begin(), order.end());
}

}  // namespace

FoundServices::FoundServices(FoundServicesDto dto)
    : local(MakeServices(dto.local)), remote(MakeServices(dto.remote)) {}

Services FoundServices::GetAll() const {
    Services all = GetLocal();
    all.splice(all.end(), GetRemote());
    return all;
}

Services FoundServices::GetLocal() const {
    return Shuffled(local);
}

void FoundServices::AddLocal(std::shared_ptr<IService> service) {
    local.push_back(std::move(service));
}

void FoundServices::AddLocal(Services services) {
    local.splice(local.end(), services);
}

Services FoundServices::GetRemote() const {
    return Shuffled(remote);
}

void FoundServices::AddRemote(std::shared_ptr<IService> service) {
    remote.push_back(std::move(service));
}

void FoundServices::AddRemote(Services services) {
    remote.splice(remote.end(), services);
}

void FoundServices::CopyFrom(std::shared_ptr<IFoundServices> other) {
    Services newLocal = other->GetLocal();
    Services newRemote = other->GetRemote();
    local = std::move(newLocal);
    remote = std::move(newRemote);
}

}  // namespace Ombry::ClientCommunications
