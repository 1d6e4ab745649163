#include "ClientCommunications/Impl/FoundServicesCache.h"

#include "ClientCommunications/FoundServicesDto.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "LibraryLogger/LogCall.h"
#include "ObjectMapping/Serialization.h"

namespace Ombry::ClientCommunications {
namespace {

ServiceDto MakeDto(const IService& service) {
    ServiceDto dto;
    dto.serviceHostname = service.GetHostname();
    dto.serviceNamespace = service.GetNamespace();
    dto.id = service.GetId();
    dto.serviceName = service.GetName();
    dto.endpointUrl = service.GetEndpointUrl();
    dto.endpointCert = service.GetEndpointCertificate();
    for (const auto& [key, value] : service.GetProperties()) {
        ServiceDto::Property property;
        property.key = key;
        property.value = value;
        dto.properties.push_back(std::move(property));
    }
    return dto;
}

std::list<ServiceDto> MakeDtos(const std::list<std::shared_ptr<IService>>& services) {
    std::list<ServiceDto> dtos;
    for (const std::shared_ptr<IService>& service : services)
        dtos.push_back(MakeDto(*service));
    return dtos;
}

}  // namespace

FoundServicesCache::FoundServicesCache(std::shared_ptr<IStorage> theStorage,
                                       std::shared_ptr<LibraryLogger::ILogger> theLogger)
    : storage(std::move(theStorage)), logger(std::move(theLogger)) {
    const std::string text = storage->Load();
    FoundServicesDto dto;
    if (!text.empty()) ObjectMapping::DeserializeObject(dto, text, nullptr, false);
    nextRefreshTime = TimePoint(Duration(SecondsToTicks(dto.expiryTime)));
    foundServices = std::make_shared<FoundServices>(std::move(dto));
}

TimePoint FoundServicesCache::GetNextRefreshTime() {
    std::lock_guard guard(mutex);
    return nextRefreshTime;
}

std::shared_ptr<IFoundServices> FoundServicesCache::GetFoundServices() {
    std::lock_guard guard(mutex);
    return foundServices;
}

void FoundServicesCache::Save(std::shared_ptr<IFoundServices> services, TimePoint newRefreshTime) {
    FoundServicesDto dto;
    dto.expiryTime = newRefreshTime.time_since_epoch().count() / TicksPerSecond;
    dto.local = MakeDtos(services->GetLocal());
    dto.remote = MakeDtos(services->GetRemote());
    const std::string text = ObjectMapping::SerializeObject(dto, nullptr);
    LibraryLogger::LogCall(logger, "Ombry::ClientCommunications::FoundServicesCache::Save", 1,
                           "Found: ", text);
    storage->Save(text);
    std::lock_guard guard(mutex);
    foundServices.swap(services);  // the old set goes with the argument, behind the lock
    nextRefreshTime = newRefreshTime;
}

}  // namespace Ombry::ClientCommunications
