#pragma once

#include "ClientCommunications/IServiceRequest.h"

#include <map>

namespace Ombry::ClientCommunications {

/// A request as a value: what it carries and its limits. One thread at a time. Headers carry credentials:
/// their values are wiped when they are replaced or removed, and with the request.
class ServiceRequest : public IServiceRequest {
public:
    ServiceRequest(std::string method, std::string path, const std::string& contractVersion);
    ~ServiceRequest() override;
    ServiceRequest(const ServiceRequest&) = delete;
    ServiceRequest& operator=(const ServiceRequest&) = delete;

    void SetHeader(const std::string& name, const std::string& value) override;
    void RemoveHeader(const std::string& name) override;
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
    std::string GetHeader(const std::string& name) const override;

private:
    const std::string method;
    const std::string path;
    std::map<std::string, std::string> headers;
    std::shared_ptr<ISyncReader> body;
    Duration attemptTimeout = std::chrono::seconds(100);
    Duration overallTimeout = std::chrono::seconds(300);
    Cancellation::Token token;
    int maxRetries = 2147483647;
};

std::shared_ptr<IServiceRequest> CreateServiceRequest(const std::string& method, const std::string& path,
                                                      const std::string& contractVersion);

}  // namespace Ombry::ClientCommunications
