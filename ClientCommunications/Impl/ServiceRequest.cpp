#include "ClientCommunications/Impl/ServiceRequest.h"

#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/SyncStringReader.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {

ServiceRequest::ServiceRequest(std::string method, std::string path, const std::string& contractVersion)
    : method(std::move(method)), path(std::move(path)) {
    headers.Set(KnownHeader::ContractVersion, std::string(contractVersion));
}

void ServiceRequest::SetBody(const std::string& text) {
    body = std::make_shared<SyncStringReader>(text);
}

void ServiceRequest::SetBodySource() {
    throw std::runtime_error("Not implemented.");
}

void ServiceRequest::ForEachHeader(
    std::function<void(const std::string& name, const std::string& value)> callback) const {
    headers.ForEach([&](const std::string& name, const std::string& value) {
        if (!callback) throw BadFunctionCall();
        callback(name, value);
    });
}

Cancellation::Token ServiceRequest::GetCancellationToken() const {
    return Cancellation::Link(Cancellation::CreateTimeout(overallTimeout), token);
}

void SetSharedHeader(IServiceRequest& request, KnownHeader header, std::shared_ptr<const std::string> value) {
    if (ServiceRequest* const ours = ServiceRequest::Of(request)) {
        ours->Headers().Share(header, std::move(value));
    } else {
        request.SetHeader(NameOf(header), *value);
    }
}

std::shared_ptr<IServiceRequest> CreateServiceRequest(const std::string& method, const std::string& path,
                                                      const std::string& contractVersion) {
    return std::make_shared<ServiceRequest>(method, path, contractVersion);
}

}  // namespace Ombry::ClientCommunications
