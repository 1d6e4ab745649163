#include "ClientCommunications/Impl/ServiceRequestFactory.h"

#include "ClientCommunications/Impl/KnownHeaders.h"
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
    request->SetHeader(NameOf(KnownHeader::DatacenterId), datacenterId);
    request->SetHeader(NameOf(KnownHeader::SourceDatacenterId), datacenterId);
    request->SetHeader(NameOf(KnownHeader::SourceClientId), clientId);
    request->SetHeader(NameOf(KnownHeader::SourceClientName), clientName);
    RootRequestMetaData::addToRequest(request, RootRequestMetaData::normalize(std::move(metaData)));
    return request;
}

std::shared_ptr<IServiceRequest> ServiceRequestFactory::Create(const std::string& method,
                                                               const std::string& path,
                                                               const std::string& contractVersion) {
    return Create(method, path, contractVersion, nullptr);
}

}  // namespace Ombry::ClientCommunications
