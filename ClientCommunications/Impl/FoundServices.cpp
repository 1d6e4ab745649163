#include "ClientCommunications/Impl/FoundServices.h"

#include "ClientCommunications/Impl/Service.h"
#include "Platform/IRandom.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <vector>

namespace Ombry::ClientCommunications {
namespace {

using Services = std::list<std::shared_ptr<IService>>;

using Stored = std::vector<std::shared_ptr<IService>>;

Stored MakeServices(std::list<ServiceDto>& dtos) {
    Stored services;
    services.reserve(dtos.size());
    for (ServiceDto& dto : dtos)
        services.push_back(std::make_shared<Service>(std::move(dto)));
    return services;
}

// Shuffles where they stand and not the services, so that each is copied once: a long list is read by each
// choice of a server.
Services Shuffled(const Stored& services) {
    std::vector<const std::shared_ptr<IService>*> order;
    order.reserve(services.size());
    for (const std::shared_ptr<IService>& service : services)
        order.push_back(&service);
    std::mt19937 generator(Platform::Random().SeedWord());
    std::shuffle(order.begin(), order.end(), generator);
    Services shuffled;
    for (const std::shared_ptr<IService>* service : order)
        shuffled.push_back(*service);
    return shuffled;
}

void Append(Stored& stored, Services& services) {
    stored.insert(stored.end(), std::move_iterator(services.begin()), std::move_iterator(services.end()));
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
    Append(local, services);
}

Services FoundServices::GetRemote() const {
    return Shuffled(remote);
}

void FoundServices::AddRemote(std::shared_ptr<IService> service) {
    remote.push_back(std::move(service));
}

void FoundServices::AddRemote(Services services) {
    Append(remote, services);
}

void FoundServices::CopyFrom(std::shared_ptr<IFoundServices> other) {
    Services otherLocal = other->GetLocal();
    Services otherRemote = other->GetRemote();
    Stored newLocal, newRemote;
    Append(newLocal, otherLocal);
    Append(newRemote, otherRemote);
    local = std::move(newLocal);
    remote = std::move(newRemote);
}

}  // namespace Ombry::ClientCommunications
