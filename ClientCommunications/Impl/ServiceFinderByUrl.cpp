#include "ClientCommunications/Impl/ServiceFinderByUrl.h"

#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/Service.h"

namespace Ombry::ClientCommunications {

ServiceFinderByUrl::ServiceFinderByUrl(const std::string& url)
    : foundServices(std::make_shared<FoundServices>()) {
    ServiceDto dto;
    dto.endpointUrl = url;
    foundServices->AddLocal(std::make_shared<Service>(std::move(dto)));
}

std::shared_ptr<IFoundServices> ServiceFinderByUrl::Find(std::shared_ptr<IRootRequestMetaData>,
                                                         Cancellation::Token) {
    return Find(Cancellation::Token());
}

std::shared_ptr<IFoundServices> ServiceFinderByUrl::Find(Cancellation::Token) {
    return foundServices;
}

}  // namespace Ombry::ClientCommunications
