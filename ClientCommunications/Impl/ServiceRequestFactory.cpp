#include "ClientCommunications/Impl/ServiceRequestFactory.h"

#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "Platform/SecureWipe.h"

namespace Ombry::ClientCommunications {

ServiceRequestFactory::Source::Source(const std::string& clientId, std::string clientName,
                                      std::string datacenterId)
    : clientName(std::move(clientName)), datacenterId(std::move(datacenterId)), clientId(clientId) {}

ServiceRequestFactory::Source::~Source() {
    Platform::SecureWipe(clientId);
}

ServiceRequestFactory::ServiceRequestFactory(const std::string& clientId, std::string clientName,
                                             std::string datacenterId)
    : source(std::make_shared<Source>(clientId, std::move(clientName), std::move(datacenterId))) {}

std::shared_ptr<IServiceRequest> ServiceRequestFactory::Create(
    const std::string& method, const std::string& path, const std::string& contractVersion,
    std::shared_ptr<IRootRequestMetaData> metaData) {
    auto request = std::make_shared<ServiceRequest>(method, path, contractVersion);
    request->Keep(source);
    const auto share = [&](KnownHeader header, const std::string& value) {
        request->Headers().Share(header, {std::shared_ptr<void>(), &value});
    };
    share(KnownHeader::DatacenterId, source->datacenterId);
    share(KnownHeader::SourceDatacenterId, source->datacenterId);
    share(KnownHeader::SourceClientId, source->clientId);
    share(KnownHeader::SourceClientName, source->clientName);
    RootRequestMetaData::addToRequest(request, RootRequestMetaData::normalize(std::move(metaData)));
    return request;
}

std::shared_ptr<IServiceRequest> ServiceRequestFactory::Create(const std::string& method,
                                                               const std::string& path,
                                                               const std::string& contractVersion) {
    return Create(method, path, contractVersion, nullptr);
}

}  // namespace Ombry::ClientCommunications
