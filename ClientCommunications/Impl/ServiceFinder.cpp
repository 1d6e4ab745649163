#include "ClientCommunications/Impl/ServiceFinder.h"

#include "ClientCommunications/Impl/CacheControl.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "LibraryLogger/LogCall.h"
#include "ObjectMapping/Serialization.h"
#include "Platform/IClock.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

using LibraryLogger::LogCall;

constexpr const char* FindName = "Ombry::ClientCommunications::ServiceFinder::Find";
constexpr const char* TraceName = "Ombry::ClientCommunications::ServiceFinder::TraceFoundServices";

// With a copy to fall back on, the call is made cheap.
constexpr Duration CheapCallLimit = std::chrono::seconds(6);

}  // namespace

ServiceFinder::ServiceFinder(std::shared_ptr<IServiceGateway> gateway,
                             std::shared_ptr<IServiceRequestFactory> requestFactory,
                             std::shared_ptr<IKeyValueStorage> cache,
                             std::shared_ptr<LibraryLogger::ILogger> logger, std::string path)
    : gateway(std::move(gateway)),
      requestFactory(std::move(requestFactory)),
      cache(std::move(cache)),
      logger(std::move(logger)),
      path(std::move(path)),
      metaData(RootRequestMetaData::create("FindServices")) {}

std::shared_ptr<IFoundServices> ServiceFinder::Find(Cancellation::Token token) {
    return Find(metaData, std::move(token));
}

std::shared_ptr<IFoundServices> ServiceFinder::Find(std::shared_ptr<IRootRequestMetaData> callMetaData,
                                                    Cancellation::Token token) {
    FoundServicesDto dto;
    bool hasCached = ReadCache(dto);
    const long long now = Platform::WallSeconds();
    if (hasCached && now < dto.expiryTime) {
        LogCall(logger, FindName, 0, "Returning cached result for ", path);
        TraceFoundServices(dto, "cache");
        return std::make_shared<FoundServices>(std::move(dto));
    }
    if (hasCached && SaturatingAdd(dto.expiryTime, dto.maxStaleTime) < now) {
        LogCall(logger, FindName, 0, "Removing cached result older than maximum age.");
        cache->RemoveByKey(path);
        hasCached = false;
    }
    try {
        if (auto found = Ask(std::move(callMetaData), std::move(token), hasCached, dto)) return found;
    } catch (const std::exception& failure) {
        LogCall(logger, FindName, 4, "Caught exception: ", failure.what());
        if (!hasCached) throw;
        LogCall(logger, FindName, 0, "Returning cached result.");
    }
    return std::make_shared<FoundServices>(std::move(dto));
}

// A copy that cannot be read is the caller's to hear of: this stands outside the handler of `Find`.
bool ServiceFinder::ReadCache(FoundServicesDto& dto) {
    if (!cache) return false;
    const std::string text = cache->GetByKey(path);
    if (text.empty()) return false;
    ObjectMapping::DeserializeObject(dto, text, nullptr, false);
    return true;
}

std::shared_ptr<IFoundServices> ServiceFinder::Ask(std::shared_ptr<IRootRequestMetaData> callMetaData,
                                                   Cancellation::Token token, bool hasCached,
                                                   const FoundServicesDto& cached) {
    const std::shared_ptr<IServiceRequest> request =
        requestFactory->Create("GET", path, "1", std::move(callMetaData));
    request->SetCancellationToken(std::move(token));
    if (hasCached) {
        request->SetMaxRetries(0);
        request->SetAttemptTimeout(CheapCallLimit);
        request->SetOverallTimeout(CheapCallLimit);
    }
    // The caller's token travels in the request; the call's own is one that never fires.
    const auto response = gateway->CallForString(request, Cancellation::Token());
    if (response->GetStatusCode() >= 300) {
        const auto text = [&response] {
            return "HTTP error " + std::to_string(response->GetStatusCode()) + ": " + response->GetBody();
        };
        LogCall(logger, FindName, 4, text);
        if (!hasCached) throw std::runtime_error(text());
        LogCall(logger, FindName, 0, "Returning cached result.");
        TraceFoundServices(cached, "cache");
        return nullptr;
    }
    FoundServicesDto dto;
    ObjectMapping::DeserializeObject(dto, response->GetBody(), nullptr, false);
    if (cache) Store(*response, dto);
    TraceFoundServices(dto, "SSDS");
    return std::make_shared<FoundServices>(std::move(dto));
}

// A write that fails makes a good answer fail: whoever runs on a full disk is to hear of it.
void ServiceFinder::Store(const IServiceResponse& response, FoundServicesDto& dto) {
    LogCall(logger, FindName, 0, "Storing result in cache.");
    if (response.HasHeader("Cache-Control")) ApplyCacheControl(response.GetHeader("Cache-Control"), dto);
    cache->SetByKey(path, ObjectMapping::SerializeObject(dto, nullptr));
}

void ServiceFinder::TraceFoundServices(const FoundServicesDto& dto, const char* source) const {
    if (dto.local.empty() && dto.remote.empty()) {
        LogCall(logger, TraceName, 3, "Loaded zero services from ", source, " for ", path);
        return;
    }
    if (!logger || !logger->IsEnabled(0)) return;  // the lists may be long
    LogCall(logger, TraceName, 0, "Loaded from ", source, " for ", path);
    for (const ServiceDto& service : dto.local) {
        LogCall(logger, TraceName, 0, "local ", service.serviceName, " at ", service.endpointUrl);
    }
    for (const ServiceDto& service : dto.remote) {
        LogCall(logger, TraceName, 0, "remote ", service.serviceName, " at ", service.endpointUrl);
    }
}

}  // namespace Ombry::ClientCommunications
