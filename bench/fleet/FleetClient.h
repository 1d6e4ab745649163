#pragma once

#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/IServiceGateway.h"
#include "bench/fleet/SeededRandom.h"
#include "bench/fleet/Simulation.h"

#include <string>
#include <vector>

namespace Ombry::Fleet {

/// What became of the calls of a fleet.
struct Outcomes {
    std::uint64_t answered = 0;
    std::vector<TimePoint> failures;  ///< when each of the others ended
};

/// One long-running program on a machine of its own, as an enrolled client: the whole client library over the
/// model of the service. It calls once when it starts, and then again and again after a pause.
class FleetClient {
public:
    struct Surroundings {
        Simulation& simulation;
        SeededRandom& random;
        Outcomes& outcomes;
        const bool& stopping;
        Duration leastPause;
        Duration mostPause;
        bool gatewayOfEachCall;
    };

    /// `directory` holds the machine's state.
    FleetClient(std::string directory,
                std::shared_ptr<ClientCommunications::IHttpClientServiceGatewayFactory> http,
                const Surroundings& surroundings);

    /// On a fiber of its own, until the fleet stops.
    void Run();

    /// Leaves in `directory` what the bootstrap and the enrolment of a client leave.
    static void Enroll(const std::string& directory, int datacenter);

private:
    bool Call(ClientCommunications::IClientCommunications& communications,
              ClientCommunications::IServiceGateway& gateway);

    const std::string directory;
    const std::shared_ptr<ClientCommunications::IHttpClientServiceGatewayFactory> http;
    const Surroundings& surroundings;
};

}  // namespace Ombry::Fleet
