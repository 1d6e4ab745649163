#include "ClientCommunications/Impl/SSDFoundServicesCache.h"

#include "LibraryLogger/LogCall.h"

#include <map>
#include <string>

namespace Ombry::ClientCommunications {

SSDFoundServicesCache::SSDFoundServicesCache(std::shared_ptr<IFoundServices> seeds,
                                             std::shared_ptr<IStorage> theStorage,
                                             std::shared_ptr<LibraryLogger::ILogger> theLogger)
    : FoundServicesCache(std::move(theStorage), std::move(theLogger)) {
    if (ContainsSeeds(*seeds)) return;
    LibraryLogger::LogCall(
        logger, "Ombry::ClientCommunications::SSDFoundServicesCache::SSDFoundServicesCache", 2,
        "Either the cache doesn't exist or the existing cache doesn't contain seed nodes.  Seeding cache.");
    Save(std::move(seeds), TimePoint());  // a time that has passed: the list is refreshed at once
}

// Whether at least one cached service is a seed and none of those has another certificate.
bool SSDFoundServicesCache::ContainsSeeds(const IFoundServices& seeds) {
    std::map<std::string, std::string> certificates;
    for (const std::shared_ptr<IService>& seed : seeds.GetAll()) {
        certificates[seed->GetEndpointUrl()] = seed->GetEndpointCertificate();
    }
    bool contains = false;
    for (const std::shared_ptr<IService>& cached : GetFoundServices()->GetAll()) {
        const auto seed = certificates.find(cached->GetEndpointUrl());
        if (seed == certificates.end()) continue;
        if (seed->second != cached->GetEndpointCertificate()) return false;
        contains = true;
    }
    return contains;
}

}  // namespace Ombry::ClientCommunications
