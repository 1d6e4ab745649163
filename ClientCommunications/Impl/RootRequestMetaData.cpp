#include "ClientCommunications/RootRequestMetaData.h"

#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "Platform/IRandom.h"

#include <map>

namespace Ombry::ClientCommunications::RootRequestMetaData {
namespace {

constexpr const char* Prefix = "SF-Root-";
constexpr const char* FirstAttempt = "1";
constexpr const char* UncorrelatedCall = "ClientToService";

class RootRequestMetaDataImpl : public IRootRequestMetaData {
public:
    explicit RootRequestMetaDataImpl(const std::shared_ptr<IRootRequestMetaData>& other) {
        if (other)
            other->ForEachValue(
                [this](const std::string& key, const std::string& value) { Set(key, value); });
    }

    void Set(const std::string& key, std::string value) { values[key] = std::move(value); }

    bool HasValue(const std::string& key) const override { return values.contains(key); }

    std::string GetValue(const std::string& key) const override {
        const auto found = values.find(key);
        if (found == values.end()) ThrowInvalidMapKey();
        return found->second;
    }

    void ForEachValue(
        std::function<void(const std::string& key, const std::string& value)> callback) const override {
        ForEachPair(values, callback);
    }

private:
    std::map<std::string, std::string> values;
};

// What becomes of a call that nobody's metadata came with.
struct MetaDataOfNobody : RootRequestMetaDataImpl {
    MetaDataOfNobody() : RootRequestMetaDataImpl(nullptr) {
        Set(NameOf(KnownHeader::RootAttempt), attempt);
        Set(NameOf(KnownHeader::RootCorrelationId), correlation);
    }

    const std::string attempt = FirstAttempt;
    const std::string correlation = UncorrelatedCall;
};

}  // namespace

std::shared_ptr<IRootRequestMetaData> create(const std::string& requestType) {
    auto metaData = std::make_shared<RootRequestMetaDataImpl>(nullptr);
    metaData->Set(NameOf(KnownHeader::RootRequestType), requestType);
    return metaData;
}

std::shared_ptr<IRootRequestMetaData> createInfrastructure(const std::string& requestType) {
    auto metaData = std::make_shared<RootRequestMetaDataImpl>(nullptr);
    metaData->Set(NameOf(KnownHeader::RootRequestType), requestType);
    metaData->Set(NameOf(KnownHeader::RootRequestIsInfrastructure), "true");
    return metaData;
}

std::shared_ptr<IRootRequestMetaData> normalize(std::shared_ptr<IRootRequestMetaData> given) {
    if (!given) {
        // Each call without any makes the same of it, after the same draw, and nobody changes it.
        Platform::Random().NewGuid();
        return {std::shared_ptr<void>(), &Platform::MadeOnce<MetaDataOfNobody>()};
    }
    std::shared_ptr<RootRequestMetaDataImpl> result;
    const auto ensure = [&](const std::string& key, const auto& makeValue) {
        if (given->HasValue(key)) return;
        if (!result) result = std::make_shared<RootRequestMetaDataImpl>(given);
        result->Set(key, makeValue());
    };
    ensure(NameOf(KnownHeader::RootCorrelationId), [] { return MakeGuidText(); });
    ensure(NameOf(KnownHeader::RootAttempt), [] { return FirstAttempt; });
    // The same key once more, on purpose: whoever reads the logs of the services relies on calls without a
    // correlation of their own showing this fixed text, and the request type stays without a default.
    ensure(NameOf(KnownHeader::RootCorrelationId), [] { return UncorrelatedCall; });
    if (result) return result;
    return given;
}

void addToRequest(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IRootRequestMetaData> metaData) {
    const auto& ofNobody = Platform::MadeOnce<MetaDataOfNobody>();
    if (ServiceRequest* const ours = ServiceRequest::Of(*request); ours && metaData.get() == &ofNobody) {
        ours->Headers().Share(KnownHeader::RootAttempt, {std::shared_ptr<void>(), &ofNobody.attempt});
        ours->Headers().Share(KnownHeader::RootCorrelationId,
                              {std::shared_ptr<void>(), &ofNobody.correlation});
        return;
    }
    metaData->ForEachValue(
        [&](const std::string& key, const std::string& value) { request->SetHeader(key, value); });
}

std::shared_ptr<IRootRequestMetaData> getFromRequest(std::shared_ptr<IServiceRequest> request) {
    std::shared_ptr<RootRequestMetaDataImpl> metaData;
    request->ForEachHeader([&](const std::string& name, const std::string& value) {
        if (!name.starts_with(Prefix)) return;
        if (!metaData) metaData = std::make_shared<RootRequestMetaDataImpl>(nullptr);
        metaData->Set(name, value);
    });
    return metaData;
}

}  // namespace Ombry::ClientCommunications::RootRequestMetaData
