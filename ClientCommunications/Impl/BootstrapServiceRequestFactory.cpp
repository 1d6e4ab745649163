#include "ClientCommunications/Impl/BootstrapServiceRequestFactory.h"

#include "ClientCommunications/Impl/ServiceRequest.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IServiceRequest> BootstrapServiceRequestFactory::Create(
    const std::string& method, const std::string& path, const std::string& contractVersion,
    std::shared_ptr<IRootRequestMetaData>) {
    return Create(method, path, contractVersion);
}

std::shared_ptr<IServiceRequest> BootstrapServiceRequestFactory::Create(const std::string& method,
                                                                        const std::string& path,
                                                                        const std::string& contractVersion) {
    return CreateServiceRequest(method, path, contractVersion);
}

}  // namespace Ombry::ClientCommunications
