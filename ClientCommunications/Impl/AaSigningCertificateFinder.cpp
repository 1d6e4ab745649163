#include "ClientCommunications/Impl/AaSigningCertificateFinder.h"

namespace Ombry::ClientCommunications {

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
