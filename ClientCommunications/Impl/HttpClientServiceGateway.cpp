#include "ClientCommunications/Impl/HttpClientServiceGateway.h"

#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/BodyLimit.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/ServiceResponse.h"
#include "ClientCommunications/Impl/StreamResponseWriter.h"
#include "ClientCommunications/Impl/SyncReaderAdapter.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "ClientCommunications/Impl/SyncWriterAdapter.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

using LibraryLogger::LogCall;
using OmbryZephCore::ZephSorrelSyncHttpClient;

constexpr const char* GetHttpClientName =
    "Ombry::ClientCommunications::HttpClientServiceGateway::GetHttpClient";
constexpr const char* DoRequestName = "Ombry::ClientCommunications::HttpClientServiceGateway::DoRequest";

// Holds the correlation string of an ordinary request, so that it is not copied while it grows.
constexpr std::size_t OrdinaryCorrelationLength = 640;

// Whole seconds; what is below one second becomes 0, which is no limit at all.
std::uint32_t ToSeconds(Duration timeout) {
    constexpr std::int64_t highest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(timeout.count() / TicksPerSecond, 0, highest));
}

}  // namespace

HttpClientServiceGateway::HttpClientServiceGateway(
    std::shared_ptr<IService> service,
    std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool,
    std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose)
    : service(std::move(service)),
      connectionPool(std::move(connectionPool)),
      logger(std::move(logger)),
      verbose(verbose) {}

HttpClientServiceGateway::HttpClientServiceGateway(
    std::shared_ptr<const ServiceEndpoint> endpoint,
    std::shared_ptr<OmbryZephCore::ZephSorrelSyncConnectionPool> connectionPool,
    std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose)
    : known(std::move(endpoint)),
      service(known->service),
      connectionPool(std::move(connectionPool)),
      logger(std::move(logger)),
      verbose(verbose) {}

std::shared_ptr<IStringServiceResponse> HttpClientServiceGateway::CallForString(
    std::shared_ptr<IServiceRequest> request, Cancellation::Token token) {
    std::shared_ptr<const ServiceEndpoint> made;
    const std::shared_ptr<const ServiceEndpoint>& endpoint = Endpoint(made);
    std::optional<ZephSorrelSyncHttpClient> client;
    GetHttpClient(client, endpoint);
    std::string body;
    SyncStringWriter writer(body);
    Private::SyncWriterAdapter adapter(writer);
    BodyLimit limit(adapter);
    DoRequest(*client, *endpoint, *request, limit, token);
    return std::make_shared<StringServiceResponse>(*std::move(client), service, std::move(body));
}

std::shared_ptr<IStreamServiceResponse> HttpClientServiceGateway::CallForStream(
    std::shared_ptr<IServiceRequest> request, std::shared_ptr<ISyncWriter> writer,
    Cancellation::Token token) {
    std::shared_ptr<const ServiceEndpoint> made;
    const std::shared_ptr<const ServiceEndpoint>& endpoint = Endpoint(made);
    std::optional<ZephSorrelSyncHttpClient> client;
    GetHttpClient(client, endpoint);
    StreamResponseWriter streamWriter(*client, *writer);
    DoRequest(*client, *endpoint, *request, streamWriter, token);
    return std::make_shared<StreamServiceResponse>(*std::move(client), service, streamWriter.GetErrorBody());
}

// What is known of the service already, or what it says now, which is made in `room`.
const std::shared_ptr<const ServiceEndpoint>& HttpClientServiceGateway::Endpoint(
    std::shared_ptr<const ServiceEndpoint>& room) const {
    return known ? known : room = std::make_shared<const ServiceEndpoint>(service);
}

// Makes one where the caller has room for it.
void HttpClientServiceGateway::GetHttpClient(std::optional<ZephSorrelSyncHttpClient>& client,
                                             const std::shared_ptr<const ServiceEndpoint>& endpoint) const {
    if (!endpoint->isChecked) {
        LogCall(logger, GetHttpClientName, 3,
                "No certificate is registered so TLS certificate validation will not be done for endpoint ",
                endpoint->url);
    }
    client.emplace(
        logger, verbose,
        std::shared_ptr<const OmbryZephCore::ZephSorrelConnectionParameters>(endpoint, &endpoint->parameters),
        connectionPool.get());
    client->SetBasePath(endpoint->basePath);
}

std::string HttpClientServiceGateway::makeCorrelationString(const IServiceRequest& request) {
    std::string text;
    text.reserve(OrdinaryCorrelationLength);
    request.ForEachHeader([&](const std::string& name, const std::string& value) {
        if (!name.starts_with("SF-")) return;
        text += text.empty() ? " [" : ", ";
        text += name;
        text += ": ";
        text += value;
    });
    if (!text.empty()) text += "]";
    return text;
}

// Logs the parts with what identifies the call behind them. The headers are walked though nobody may log
// them: a request of somebody else's making, whose headers it may not be possible to walk, fails alike with a
// logger and without one.
template <class... Parts>
void HttpClientServiceGateway::LogCorrelated(const LibraryLogger::Place& place, int level,
                                             const IServiceRequest& request, const Parts&... parts) const {
    bool walked = false;
    LogCall(logger, place, level, parts..., [&] {
        walked = true;
        return makeCorrelationString(request);
    });
    if (!walked && !ServiceRequest::Of(request))
        request.ForEachHeader([](const std::string&, const std::string&) {});
}

void HttpClientServiceGateway::DoRequest(ZephSorrelSyncHttpClient& client, const ServiceEndpoint& endpoint,
                                         const IServiceRequest& request,
                                         OmbryZephCore::ZephSyncDataWriterIf& writer,
                                         const Cancellation::Token& token) const {
    const auto set = [&](const std::string& name, const std::string& value) {
        client.SetHeader(name, value);
    };
    if (const ServiceRequest* const ours = ServiceRequest::Of(request)) {
        ours->Headers().ForEach(set);
    } else {
        request.ForEachHeader(set);
    }
    const std::shared_ptr<ISyncReader> reader = request.GetBodyReader();
    OmbryCommunications::Private::SyncReaderAdapter readerAdapter(reader.get());
    if (reader) client.SetDataReader(&readerAdapter);
    client.SetDataWriter(&writer);
    client.SetTimeout(ToSeconds(request.GetAttemptTimeout()));
    client.SetToken(token);

    const std::string& url = endpoint.url;
    const std::string method = request.GetMethod();
    const std::string path = request.GetPath();
    LogCorrelated(DoRequestName, 1, request, "Calling ", method, " ", url, path);
    std::uint32_t code = OmbryZephCore::eRC_Success;
    try {
        code = client.DoRequest(method, path);
    } catch (const BodyTooLong&) {
        const std::string message = "The answer to " + method + " " + url + path + " is longer than the " +
                                    std::to_string(MaxBodyInMemory) + " bytes that are held in memory.";
        LogCorrelated(DoRequestName, 4, request, message);
        throw std::runtime_error(message);
    }
    if (code == OmbryZephCore::eRC_Success || code == OmbryZephCore::eRC_HTTP_StatusFailure) {
        LogCorrelated(DoRequestName, 1, request, "Got HTTP status ", client.GetHttpStatus());
        return;
    }
    LogCorrelated(DoRequestName, 4, request, "Error ", code, ".", client.GetIOResult(), " from ", method, " ",
                  url, path);
    ThrowFailure(code, client.GetIOResult(), token);
}

// The boundary between result codes and exceptions. What type is thrown decides whether another server is
// tried: only `CommunicationsError` and `TimeoutException` say that one may help.
void HttpClientServiceGateway::ThrowFailure(std::uint32_t code, std::uint32_t subCode,
                                            const Cancellation::Token& token) {
    token.ThrowIfCancelled();
    const std::string message = "Error " + std::to_string(code) + "." + std::to_string(subCode);
    if (code != OmbryZephCore::eRC_IO_ConnectionFailed) throw std::runtime_error(message);
    if (subCode == OmbryZephCore::eRC_TimedOut) throw Cancellation::TimeoutException(message);
    throw CommunicationsError(message);
}

}  // namespace Ombry::ClientCommunications
