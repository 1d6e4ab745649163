#include "ClientCommunications/Impl/LocalServices.h"

#include "ClientCommunications/LocalConfiguration.h"
#include "ObjectMapping/Serialization.h"

namespace Ombry::ClientCommunications {

std::string LocalServiceLookup::Lookup(const std::string& name) {
    LocalServiceStorageDto record;
    ObjectMapping::DeserializeObject(record, storage->Get(name)->Load(), nullptr, true);
    return record.guid;
}

std::shared_ptr<IServiceFinder> LocalServiceFinderFactory::Create(const std::string& componentName,
                                                                  const std::string& serviceName) {
    const std::string parentId = lookup->Lookup(componentName);
    return finderFactory->CreateByNameAndParentId(serviceName, parentId);
}

std::list<std::string> AaSigningCertificateFinder::GetCertificates() {
    std::list<std::string> certificates;
    for (const std::shared_ptr<IService>& service : finder->Find(Cancellation::Token())->GetAll()) {
        const std::map<std::string, std::string> properties = service->GetProperties();
        const auto found = properties.find("AaSigningCert");
        if (found != properties.end()) certificates.push_back(found->second);
    }
    return certificates;
}

}  // namespace Ombry::ClientCommunications
