#pragma once

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/Impl/RequestHeaders.h"

#include <typeinfo>

namespace Ombry::ClientCommunications {

/// A request as a value: what it carries and its limits. One thread at a time. Headers carry credentials,
/// which are wiped with it.
class ServiceRequest : public IServiceRequest {
public:
    ServiceRequest(std::string method, std::string path, const std::string& contractVersion);

    void SetHeader(const std::string& name, const std::string& value) override { headers.Set(name, value); }
    void RemoveHeader(const std::string& name) override { headers.Remove(name); }
    void SetBody(const std::string& text) override;
    void SetBodyReader(std::shared_ptr<ISyncReader> reader) override { body = std::move(reader); }
    void SetBodySource() override;
    void SetAttemptTimeout(Duration timeout) override { attemptTimeout = timeout; }
    void SetOverallTimeout(Duration timeout) override { overallTimeout = timeout; }
    void SetCancellationToken(Cancellation::Token newToken) override { token = std::move(newToken); }
    void SetMaxRetries(int retries) override { maxRetries = retries; }
    std::string GetMethod() const override { return method; }
    std::string GetPath() const override { return path; }
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const override;
    std::shared_ptr<ISyncReader> GetBodyReader() const override { return body; }
    Duration GetAttemptTimeout() const override { return attemptTimeout; }
    Cancellation::Token GetCancellationToken() const override;
    int GetMaxRetries() const override { return maxRetries; }
    /// An absent header reads as empty here, while a response's throws: callers of a request ask for headers
    /// that are often not there.
    std::string GetHeader(const std::string& name) const override { return headers.Get(name); }

    /// The request itself, if it is of this very class: its headers can be reached without a copy.
    static const ServiceRequest* Of(const IServiceRequest& request) {
        return typeid(request) == typeid(ServiceRequest) ? static_cast<const ServiceRequest*>(&request)
                                                         : nullptr;
    }
    static ServiceRequest* Of(IServiceRequest& request) {
        return typeid(request) == typeid(ServiceRequest) ? static_cast<ServiceRequest*>(&request) : nullptr;
    }
    const RequestHeaders& Headers() const { return headers; }
    RequestHeaders& Headers() { return headers; }
    /// Keeps what shared headers belong to until the request goes.
    void Keep(std::shared_ptr<const void> ownerOfHeaders) { owner = std::move(ownerOfHeaders); }

private:
    const std::string method;
    const std::string path;
    std::shared_ptr<const void> owner;
    RequestHeaders headers;
    std::shared_ptr<ISyncReader> body;
    Duration attemptTimeout = std::chrono::seconds(100);
    Duration overallTimeout = std::chrono::seconds(300);
    Cancellation::Token token;
    int maxRetries = 2147483647;
};

/// Sets a header to a value that is not copied where the request needs no copy: whoever the value belongs to
/// does not change it, and wipes it.
void SetSharedHeader(IServiceRequest& request, KnownHeader header, std::shared_ptr<const std::string> value);

std::shared_ptr<IServiceRequest> CreateServiceRequest(const std::string& method, const std::string& path,
                                                      const std::string& contractVersion);

}  // namespace Ombry::ClientCommunications
