#pragma once

#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/IStringServiceResponse.h"
#include "bench/fleet/RequestLog.h"
#include "bench/fleet/SeededRandom.h"
#include "bench/fleet/Simulation.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Fleet {

enum class Role { Discovery, Tokens, Work };

/// How what is down fails.
enum class Failure {
    Refused,     ///< connections are refused at once
    Silent,      ///< nothing comes back
    Unavailable  ///< status 503
};

/// Seconds from the start, and what is down meanwhile: one role or all, in one datacenter or in both.
struct Outage {
    Window window;
    Failure failure;
    std::optional<Role> role;
    std::optional<int> datacenter;
};

struct ServiceSettings {
    Duration tokenLife = std::chrono::hours(1);
    /// Value of the header of discovery's answers; empty for none, which leaves clients their defaults of 300
    /// seconds and a week.
    std::string cacheControl;
    Duration leastLatency = std::chrono::milliseconds(20);
    Duration mostLatency = std::chrono::milliseconds(60);
    std::vector<Outage> outages;
};

/// A Security Framework service in two datacenters, each with two instances of discovery, two of the token
/// service and four of a service that clients call. It has room for any number of requests: what it sees is
/// what it would have to bear.
class ModelService {
public:
    ModelService(ServiceSettings settings, Simulation& simulation, SeededRandom& random, RequestLog& log);

    /// What a client in a datacenter has in the place of HTTP.
    std::shared_ptr<ClientCommunications::IHttpClientServiceGatewayFactory> GatewaysFor(int datacenter);

    /// How many requests each instance has seen, by its address.
    const std::map<std::string, std::uint64_t>& RequestsByInstance() const { return byInstance; }

    static std::string DiscoveryUrl(int datacenter);

private:
    class Gateway;
    class GatewayFactory;

    std::optional<Failure> FailureOf(const ClientCommunications::IService& instance) const;
    std::shared_ptr<ClientCommunications::IStringServiceResponse> Exchange(
        std::shared_ptr<ClientCommunications::IService> instance, int callersDatacenter,
        const ClientCommunications::IServiceRequest& request, const Cancellation::Token& token);
    void StaySilent(Duration length, const Cancellation::Token& token);
    std::string AnswerTo(Request kind, int callersDatacenter) const;

    const ServiceSettings settings;
    Simulation& simulation;
    SeededRandom& random;
    RequestLog& log;
    const TimePoint start;
    std::map<std::string, std::uint64_t> byInstance;
};

}  // namespace Ombry::Fleet
