#include "ClientCommunications/Impl/OAuth2ServiceGatewayClient.h"

#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/OAuth2Exception.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "LibraryLogger/LogCall.h"
#include "ObjectMapping/Serialization.h"

namespace Ombry::ClientCommunications {
namespace {

constexpr const char* GetTokenName = "Ombry::ClientCommunications::OAuth2ServiceGatewayClient::GetToken";

}  // namespace

OAuth2ServiceGatewayClient::OAuth2ServiceGatewayClient(std::shared_ptr<IServiceGateway> gateway,
                                                       std::shared_ptr<IServiceRequestFactory> requestFactory,
                                                       std::string path,
                                                       std::shared_ptr<LibraryLogger::ILogger> logger)
    : gateway(std::move(gateway)),
      requestFactory(std::move(requestFactory)),
      path(std::move(path)),
      logger(std::move(logger)) {}

OAuth2Token OAuth2ServiceGatewayClient::GetToken(const std::string& serviceName,
                                                 std::shared_ptr<IRootRequestMetaData> metaData,
                                                 Cancellation::Token token) {
    // The name goes out as it stands: the services register names that need no encoding, and compare them
    // raw.
    const std::string body = "grant_type=client_credentials&servicename=" + serviceName;
    const std::shared_ptr<IServiceRequest> request =
        requestFactory->Create("POST", path, "1", std::move(metaData));
    request->SetHeader(NameOf(KnownHeader::ContentType), "application/x-www-form-urlencoded");
    request->SetBody(body);
    LibraryLogger::LogCall(logger, GetTokenName, 0, "Getting token for ", serviceName);
    // A program that is ending must not ask for one more token.
    token.ThrowIfCancelled();
    const std::shared_ptr<IStringServiceResponse> response = gateway->CallForString(request, token);
    const int status = response->GetStatusCode();
    std::string answer = response->GetBody();
    const ScopedWipe wipe(answer);
    if (status >= 300) ThrowFailure(serviceName, status, answer);
    OAuth2Token result;
    ObjectMapping::DeserializeObject(result, answer, nullptr, false);
    return result;
}

// The document that the service sent never reaches the caller as an exception of its own: whatever the body
// is, callers get one kind of failure with one wording, which quotes it.
void OAuth2ServiceGatewayClient::ThrowFailure(const std::string& serviceName, int status,
                                              const std::string& body) const {
    LibraryLogger::LogCall(logger, GetTokenName, 4, "Failed to get token for ", serviceName,
                           ".  HTTP status: ", status, ", response body: ", body);
    try {
        OAuth2Exception failure;
        ObjectMapping::DeserializeObject(failure, body, nullptr, false);
        throw failure;
    } catch (...) {
        throw std::runtime_error("OAuth2 request failed with response code " + std::to_string(status) +
                                 " and response body " + body);
    }
}

}  // namespace Ombry::ClientCommunications
