#include "ClientCommunications/Impl/ServiceRequestFactory.h"

#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/RootRequestMetaData.h"

namespace Ombry::ClientCommunications {

ServiceRequestFactory::ServiceRequestFactory(std::string clientId, std::string clientName,
                                             std::string datacenterId)
    : clientId(std::move(clientId)),
      clientName(std::move(clientName)),
      datacenterId(std::move(datacenterId)) {}

std::shared_ptr<IServiceRequest> ServiceRequestFactory::Create(
    const std::string& method, const std::string& path, const std::string& contractVersion,
    std::shared_ptr<IRootRequestMetaData> metaData) {
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest(method, path, contractVersion);
    request->SetHeader("Datacenter-Id", datacenterId);
    request->SetHeader("SF-Source-Datacenter-Id", datacenterId);
    request->SetHeader("SF-Source-Client-Id", clientId);
    request->SetHeader("SF-Source-Client-Name", clientName);
    RootRequestMetaData::addToRequest(request, RootRequestMetaData::normalize(std::move(metaData)));
    return request;
}

std::shared_ptr<IServiceRequest> ServiceRequestFactory::Create(const std::string& method,
                                                               const std::string& path,
                                                               const std::string& contractVersion) {
    return Create(method, path, contractVersion, nullptr);
}

}  // namespace Ombry::ClientCommunications
