#include "ClientCommunications/Impl/ServiceRequest.h"

#include <stdexcept>

#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/SyncStringReader.h"

namespace Ombry::ClientCommunications {

ServiceRequest::ServiceRequest(std::string method, std::string path, const std::string& contractVersion)
    : method(std::move(method)), path(std::move(path)), headers{{"Contract-Version", contractVersion}} {}

void ServiceRequest::RemoveHeader(const std::string& name) {
    if (const auto found = headers.find(name); found != headers.end()) headers.erase(found);
}

void ServiceRequest::SetBody(const std::string& text) {
    body = std::make_shared<SyncStringReader>(text);
}

void ServiceRequest::SetBodySource() {
    throw std::runtime_error("Not implemented.");
}

void ServiceRequest::ForEachHeader(
    std::function<void(const std::string& name, const std::string& value)> callback) const {
    ForEachPair(headers, callback);
}

Cancellation::Token ServiceRequest::GetCancellationToken() const {
    return Cancellation::Link(Cancellation::CreateTimeout(overallTimeout), token);
}

/// An absent header reads as empty here, while a response's throws: callers of a request ask for headers that
/// are often not there.
std::string ServiceRequest::GetHeader(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

std::shared_ptr<IServiceRequest> CreateServiceRequest(const std::string& method, const std::string& path,
                                                      const std::string& contractVersion) {
    return std::make_shared<ServiceRequest>(method, path, contractVersion);
}

}  // namespace Ombry::ClientCommunications
