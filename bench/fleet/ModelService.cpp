#include "bench/fleet/ModelService.h"

#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/EndpointPaths.h"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace Ombry::Fleet {
namespace {

using namespace ClientCommunications;

struct RoleFacts {
    Role role;
    const char* serviceName;
    int instances;  // in each datacenter
};

constexpr RoleFacts Roles[] = {
    {Role::Discovery, "v1-service", 2}, {Role::Tokens, "v1-auth", 2}, {Role::Work, "v1-print", 4}};

const RoleFacts& FactsOf(Role role) {
    return *std::find_if(std::begin(Roles), std::end(Roles),
                         [&](const RoleFacts& facts) { return facts.role == role; });
}

Role RoleOf(const IService& instance) {
    return std::find_if(std::begin(Roles), std::end(Roles),
                        [&](const RoleFacts& facts) { return facts.serviceName == instance.GetName(); })
        ->role;
}

std::string UrlOf(const RoleFacts& facts, int datacenter, int number) {
    return std::string("https://") + facts.serviceName + "-" + std::to_string(number) + ".dc" +
           std::to_string(datacenter);
}

int DatacenterOf(const IService& instance) {
    return instance.GetEndpointUrl().back() - '0';
}

Request KindOf(const std::string& path) {
    if (path == EndpointPaths::OpenDiscoveryOfItself) return Request::DiscoveryList;
    if (path == EndpointPaths::OpenDiscoveryOfAuthorization) return Request::TokenSearch;
    if (path.starts_with(EndpointPaths::DiscoveryByName)) return Request::ServiceSearch;
    if (path == EndpointPaths::ClientTokens) return Request::Token;
    return Request::Work;
}

/// One of the two lists of a discovery answer.
std::string ListOf(const RoleFacts& facts, int datacenter) {
    std::string list;
    for (int number = 0; number < facts.instances; ++number) {
        const std::string url = UrlOf(facts, datacenter, number);
        list += (list.empty() ? "" : ",") + std::string(R"({"id":")") + url + R"(","serviceName":")" +
                facts.serviceName + R"(","endpointUrl":")" + url + R"(","endpointCert":"MAA="})";
    }
    return list;
}

std::string Lists(Role role, int callersDatacenter) {
    const RoleFacts& facts = FactsOf(role);
    return R"({"local":[)" + ListOf(facts, callersDatacenter) + R"(],"remote":[)" +
           ListOf(facts, 1 - callersDatacenter) + "]}";
}

class Response : public IStringServiceResponse {
public:
    Response(int status, std::shared_ptr<IService> service, std::string body, const std::string& cacheControl)
        : status(status), service(std::move(service)), body(std::move(body)) {
        if (!cacheControl.empty()) headers["Cache-Control"] = cacheControl;
    }

    int GetStatusCode() const override { return status; }
    std::shared_ptr<IService> GetService() const override { return service; }
    bool HasHeader(const std::string& name) const override { return headers.contains(name); }
    std::string GetHeader(const std::string& name) const override { return headers.at(name); }
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const override {
        for (const auto& [name, value] : headers)
            callback(name, value);
    }
    std::string GetBody() const override { return body; }

private:
    const int status;
    const std::shared_ptr<IService> service;
    const std::string body;
    std::map<std::string, std::string> headers;
};

}  // namespace

/// An exchange with one instance: what stands in the place of HTTP.
class ModelService::Gateway : public IServiceGateway {
public:
    Gateway(ModelService& model, std::shared_ptr<IService> instance, int callersDatacenter)
        : model(model), instance(std::move(instance)), callersDatacenter(callersDatacenter) {}

    std::shared_ptr<IStringServiceResponse> CallForString(std::shared_ptr<IServiceRequest> request,
                                                          Cancellation::Token token) override {
        return model.Exchange(instance, callersDatacenter, *request, token);
    }
    std::shared_ptr<IStreamServiceResponse> CallForStream(std::shared_ptr<IServiceRequest>,
                                                          std::shared_ptr<ISyncWriter>,
                                                          Cancellation::Token) override {
        throw std::logic_error("No client of the fleet asks for a stream.");
    }

private:
    ModelService& model;
    const std::shared_ptr<IService> instance;
    const int callersDatacenter;
};

class ModelService::GatewayFactory : public IHttpClientServiceGatewayFactory {
public:
    GatewayFactory(ModelService& model, int callersDatacenter)
        : model(model), callersDatacenter(callersDatacenter) {}

    std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IService> instance) override {
        return std::make_shared<Gateway>(model, std::move(instance), callersDatacenter);
    }

private:
    ModelService& model;
    const int callersDatacenter;
};

ModelService::ModelService(ServiceSettings settings, Simulation& simulation, SeededRandom& random,
                           RequestLog& log)
    : settings(std::move(settings)),
      simulation(simulation),
      random(random),
      log(log),
      start(simulation.Now()) {}

std::shared_ptr<IHttpClientServiceGatewayFactory> ModelService::GatewaysFor(int datacenter) {
    return std::make_shared<GatewayFactory>(*this, datacenter);
}

std::string ModelService::DiscoveryUrl(int datacenter) {
    return UrlOf(FactsOf(Role::Discovery), datacenter, 0);
}

std::optional<Failure> ModelService::FailureOf(const IService& instance) const {
    const auto second = static_cast<std::size_t>((simulation.Now() - start).count() / TicksPerSecond);
    for (const Outage& outage : settings.outages) {
        if (second < outage.window.begin || second >= outage.window.end) continue;
        if (outage.role && *outage.role != RoleOf(instance)) continue;
        if (outage.datacenter && *outage.datacenter != DatacenterOf(instance)) continue;
        return outage.failure;
    }
    return std::nullopt;
}

/// Fails with what the real one fails with, so that the classes above judge it as they do there.
std::shared_ptr<IStringServiceResponse> ModelService::Exchange(std::shared_ptr<IService> instance,
                                                               int callersDatacenter,
                                                               const IServiceRequest& request,
                                                               const Cancellation::Token& token) {
    const Request kind = KindOf(request.GetPath());
    log.Count(kind, simulation.Now());
    ++byInstance[instance->GetEndpointUrl()];
    const std::optional<Failure> failure = FailureOf(*instance);
    if (failure == Failure::Refused) throw CommunicationsError("Connection refused.");
    if (failure == Failure::Silent) StaySilent(request.GetAttemptTimeout(), token);
    simulation.Sleep(random.Between(settings.leastLatency, settings.mostLatency));
    token.ThrowIfCancelled();
    if (failure) return std::make_shared<Response>(503, std::move(instance), "", "");
    const bool isDiscovery = kind != Request::Token && kind != Request::Work;
    return std::make_shared<Response>(200, std::move(instance), AnswerTo(kind, callersDatacenter),
                                      isDiscovery ? settings.cacheControl : "");
}

void ModelService::StaySilent(Duration length, const Cancellation::Token& token) {
    const TimePoint end = simulation.Now() + length;
    while (simulation.Now() < end) {
        token.ThrowIfCancelled();
        simulation.Sleep(std::min<Duration>(end - simulation.Now(), std::chrono::seconds(1)));
    }
    throw Cancellation::TimeoutException("Silence.");
}

std::string ModelService::AnswerTo(Request kind, int callersDatacenter) const {
    switch (kind) {
        case Request::DiscoveryList:
            return Lists(Role::Discovery, callersDatacenter);
        case Request::TokenSearch:
            return Lists(Role::Tokens, callersDatacenter);
        case Request::ServiceSearch:
            return Lists(Role::Work, callersDatacenter);
        case Request::Token:
            return R"({"token_type":"Bearer","access_token":"token","scope":"","expires_in":)" +
                   std::to_string(settings.tokenLife.count() / TicksPerSecond) + "}";
        case Request::Work:
            break;
    }
    return "done";
}

}  // namespace Ombry::Fleet
