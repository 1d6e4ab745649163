#pragma once

#include "ClientCommunications/IServiceResponse.h"
#include "ClientCommunications/IStreamServiceResponse.h"
#include "ClientCommunications/IStringServiceResponse.h"
#include "OmbryZephCore/ZephHttpHeaderCopy.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"

#include <string_view>

namespace Ombry::ClientCommunications {

/// Orders header names without regard to ASCII case; a name that is a prefix of another comes first.
struct HeaderNameLess {
    bool operator()(const std::string& left, const std::string& right) const;
};

/// Status and headers of an answer. Of a header that was repeated the first stays, with its name as it was
/// sent. Few callers ask for more than one or two of them: they stay in the piece in which they came.
class ServiceResponse : public IServiceResponse {
public:
    /// `client` has finished the request and is not kept.
    ServiceResponse(const OmbryZephCore::ZephSorrelSyncHttpClient& client, std::shared_ptr<IService> service);
    /// The same of a client that nobody asks for its headers any more.
    ServiceResponse(OmbryZephCore::ZephSorrelSyncHttpClient&& client, std::shared_ptr<IService> service);

    int GetStatusCode() const override { return statusCode; }
    std::shared_ptr<IService> GetService() const override { return service; }
    bool HasHeader(const std::string& name) const override { return Find(name) != nullptr; }
    std::string GetHeader(const std::string& name) const override;
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const override;

private:
    const char* Find(std::string_view name) const;

    int statusCode;
    std::shared_ptr<IService> service;
    OmbryZephCore::ZephHttpHeaderCopy headers;
};

/// A `ServiceResponse` with a body; what the body is, the interface says.
template <class ResponseInterface>
class BodyServiceResponse : public ResponseInterface {
public:
    template <class Client>
    BodyServiceResponse(Client&& client, std::shared_ptr<IService> service, std::string body)
        : response(std::forward<Client>(client), std::move(service)), body(std::move(body)) {}

    int GetStatusCode() const override { return response.GetStatusCode(); }
    std::shared_ptr<IService> GetService() const override { return response.GetService(); }
    bool HasHeader(const std::string& name) const override { return response.HasHeader(name); }
    std::string GetHeader(const std::string& name) const override { return response.GetHeader(name); }
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const override {
        response.ForEachHeader(std::move(callback));
    }
    std::string GetBody() const override { return body; }

private:
    const ServiceResponse response;
    const std::string body;
};

using StringServiceResponse = BodyServiceResponse<IStringServiceResponse>;
using StreamServiceResponse = BodyServiceResponse<IStreamServiceResponse>;

}  // namespace Ombry::ClientCommunications
