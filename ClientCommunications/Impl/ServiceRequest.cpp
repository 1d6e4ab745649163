#include "ClientCommunications/Impl/ServiceRequest.h"

#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/SyncStringReader.h"
#include "Platform/SecureWipe.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {

ServiceRequest::ServiceRequest(std::string method, std::string path, const std::string& contractVersion)
    : method(std::move(method)), path(std::move(path)), headers{{"Contract-Version", contractVersion}} {}

ServiceRequest::~ServiceRequest() {
    for (auto& [name, value] : headers)
        Platform::SecureWipe(value);
}

void ServiceRequest::SetHeader(const std::string& name, const std::string& value) {
    // Whatever memory lacks, the header is as it was or as it is to be.
    const auto [header, isNew] = headers.try_emplace(name, value);
    if (isNew || &header->second == &value) return;  // the latter from a walk through these headers
    std::string fresh = value;
    header->second.swap(fresh);
    Platform::SecureWipe(fresh);
}

void ServiceRequest::RemoveHeader(const std::string& name) {
    const auto found = headers.find(name);
    if (found == headers.end()) return;
    Platform::SecureWipe(found->second);
    headers.erase(found);
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
