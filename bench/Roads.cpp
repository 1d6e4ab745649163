#include "bench/Roads.h"

#include "ClientCommunications/FoundServicesDto.h"
#include "ClientCommunications/IOAuth2Client.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/HttpClientServiceGatewayFactory.h"
#include "ClientCommunications/Impl/JwtAuthenticator.h"
#include "ClientCommunications/Impl/ServiceFinder.h"
#include "ClientCommunications/Impl/ServiceGatewayFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "ObjectMapping/Serialization.h"
#include "OmbryZephCore/ZephHttpHeaderParser.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"

#include <stdexcept>

namespace Ombry::Bench {
namespace {

using namespace ClientCommunications;
using OmbryZephCore::ZephHttpHeaderParser;

constexpr int CallPasses = 200;
constexpr int ParserPasses = 500;
constexpr int DiscoveryPasses = 20;
constexpr int DiscoveryInstances = 100;
constexpr int ParsedHeaders = 12;
constexpr const char* ServiceName = "orders";
constexpr const char* ClientId = "5ad7b0c2-0005-4c00-8000-000000000001";
constexpr const char* DatacenterId = "5ad7b0c2-0001-4c00-8000-000000000001";

void Require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
}

std::string AccessToken() {
    return std::string(350, 't');
}

/// As the service that gives tokens, once.
class OneToken : public IOAuth2Client {
public:
    OAuth2Token GetToken(const std::string&, std::shared_ptr<IRootRequestMetaData>,
                         Cancellation::Token) override {
        Require(!given, "The token in the cache was of no use.");
        given = true;
        OAuth2Token token;
        token.tokenType = "bearer";
        token.accessToken = AccessToken();
        token.expiresIn = 86400;
        return token;
    }

private:
    bool given = false;
};

/// The gateway as `ClientCommunications` composes it, with answers of discovery and tokens in its caches.
class CachedGateway {
public:
    CachedGateway(const Target& target, const std::string& folder)
        : requests(ClientId, "client", DatacenterId) {
        const std::string search = "/services/secure/name/orders";
        const auto found = std::make_shared<DirectoryKeyValueStorage>(folder + "/found");
        FoundServicesDto answer;
        answer.expiryTime += 86400;
        ServiceDto& service = answer.local.emplace_back();
        service.id = "5ad7b0c2-0003-4c00-8000-000000000001";
        service.serviceName = ServiceName;
        service.serviceNamespace = "default";
        service.serviceHostname = "127.0.0.1";
        service.endpointUrl = "https://127.0.0.1:" + std::to_string(target.port);
        service.endpointCert = target.certificate;
        found->SetByKey(search, ObjectMapping::SerializeObject(answer, nullptr));

        const auto delays = std::make_shared<ExponentialDelayRetryIteratorFactory>(std::chrono::seconds(1),
                                                                                   std::chrono::seconds(30));
        const auto failed = std::make_shared<FailedServices>(delays, std::chrono::minutes(30));
        const auto authenticator = std::make_shared<JwtAuthenticator>(
            std::make_shared<OneToken>(), folder + "/tokens", std::chrono::seconds(10), nullptr);
        ServiceGatewayFactory factory(
            std::make_shared<HttpClientServiceGatewayFactory>(nullptr, false), authenticator,
            ServiceIteratePolicyFactory(failed, nullptr).CreateIterateAfterMaxFailures(1));
        gateway = factory.Create(std::make_shared<ServiceFinder>(nullptr, nullptr, found, nullptr, search));
    }

    void Call() {
        const auto response =
            gateway->CallForString(requests.Create("GET", "/small", "1"), Cancellation::Token());
        Require(response->GetStatusCode() == 200, "The gateway got no answer.");
    }

private:
    ServiceRequestFactory requests;
    std::shared_ptr<IServiceGateway> gateway;
};

class StringWriter : public OmbryZephCore::ZephSyncDataWriterIf {
public:
    void Begin() override { body.clear(); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
        body.append(reinterpret_cast<const char*>(pData), nBytes);
    }
    void End() override {}

private:
    std::string body;
};

/// The client that the gateway stands on, with as many headers, as long ones, and a body that is kept.
class BareClient {
public:
    explicit BareClient(const Target& target)
        : parameters("127.0.0.1", target.port), pool(nullptr), client(nullptr, false, With(target), &pool) {}

    void Call() {
        for (const auto& [name, value] : headers)
            client.SetHeader(name, value);
        StringWriter writer;
        client.SetDataWriter(&writer);
        client.SetTimeout(100);
        Require(client.DoRequest("GET", "/small") == 0, "The bare client got no answer.");
    }

private:
    const OmbryZephCore::ZephSorrelConnectionParameters& With(const Target& target) {
        parameters.SetUseSSL(true).SetCertificateValidation(
            {OmbryZephCore::ValidateByPublicKey, target.certificate});
        return parameters;
    }

    OmbryZephCore::ZephSorrelConnectionParameters parameters;
    OmbryZephCore::ZephSorrelSyncConnectionPool pool;
    OmbryZephCore::ZephSorrelSyncHttpClient client;
    const std::vector<std::pair<std::string, std::string>> headers{
        {"Authorization", "Bearer " + AccessToken()},
        {"Contract-Version", "1"},
        {"Datacenter-Id", DatacenterId},
        {"SF-Destination-Service-Id", "5ad7b0c2-0003-4c00-8000-000000000001"},
        {"SF-Destination-Service-Is-Local-DC", "true"},
        {"SF-Destination-Service-Name", ServiceName},
        {"SF-Destination-Service-Namespace", "default"},
        {"SF-Request-Id", "5ad7b0c2-0004-4c00-8000-000000000001"},
        {"SF-Root-Attempt", "1"},
        {"SF-Root-Correlation-Id", "ClientToService"},
        {"SF-Source-Client-Id", ClientId},
        {"SF-Source-Client-Name", "client"},
        {"SF-Source-Datacenter-Id", DatacenterId}};
};

std::string DiscoveryText() {
    FoundServicesDto answer;
    for (int i = 0; i < DiscoveryInstances; ++i) {
        ServiceDto& service = (i % 2 == 0 ? answer.local : answer.remote).emplace_back();
        service.serviceHostname = "host-" + std::to_string(i) + ".example.org";
        service.serviceNamespace = "default";
        service.id = "5ad7b0c2-0001-4c00-8000-" + std::to_string(100000000000 + i);
        service.serviceName = ServiceName;
        service.endpointUrl = "https://" + service.serviceHostname + ":8443/orders";
        service.endpointCert = std::string(600, 'M');
    }
    return ObjectMapping::SerializeObject(answer, nullptr);
}

std::string HeadText() {
    std::string head = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < ParsedHeaders; ++i)
        head += "X-Header-" + std::to_string(i) + ": some value of a usual length, number " +
                std::to_string(i) + "\r\n";
    return head + "\r\n";
}

void ReadDiscovery(const std::string& text) {
    FoundServicesDto answer;
    ObjectMapping::DeserializeObject(answer, text, nullptr, false);
    const FoundServices found(std::move(answer));
    Require(found.GetLocal().size() == DiscoveryInstances / 2, "The discovery answer was not understood.");
}

void ParseHead(ZephHttpHeaderParser& parser, const std::string& head) {
    Require(parser.Parse(reinterpret_cast<const std::uint8_t*>(head.data()),
                         static_cast<std::uint32_t>(head.size())) == 0,
            "The head was refused.");
}

// The C library's searches cost more where they come near the end of a page, and by where in a line of the
// cache they begin: a parser whose block lies always alike.
std::shared_ptr<ZephHttpHeaderParser> MakeParser(const std::string& head) {
    constexpr std::uintptr_t page = 4096, line = 64;
    std::vector<std::shared_ptr<ZephHttpHeaderParser>> passedOver;
    while (true) {
        auto parser = std::make_shared<ZephHttpHeaderParser>(ZephHttpHeaderParser::ModeResponse);
        ParseHead(*parser, head);
        const auto begin = reinterpret_cast<std::uintptr_t>(parser->GetVersion());
        if (begin % line == 0 && begin % page + head.size() + line <= page) return parser;
        passedOver.push_back(std::move(parser));
    }
}

}  // namespace

std::vector<Road> MakeRoads(const Target& target, const std::string& folder) {
    const std::shared_ptr<HttpClient> client = MakeOmbryClient(target);
    const auto bare = std::make_shared<BareClient>(target);
    const auto gateway = std::make_shared<CachedGateway>(target, folder);
    const auto parser = MakeParser(HeadText());
    return {
        {"GET", CallPasses, [client] { client->Get("/small"); }},
        {"POST", CallPasses, [client, body = std::string(500, 'b')] { client->Post("/submit", body); }},
        {"bare", CallPasses, [bare] { bare->Call(); }},
        {"gateway", CallPasses, [gateway] { gateway->Call(); }},
        {"discovery", DiscoveryPasses, [text = DiscoveryText()] { ReadDiscovery(text); }},
        {"header", ParserPasses, [parser, head = HeadText()] { ParseHead(*parser, head); }},
    };
}

}  // namespace Ombry::Bench
