#include "bench/fleet/Fleet.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "bench/fleet/MemoryDisk.h"
#include "bench/fleet/SeededRandom.h"
#include "bench/fleet/Simulation.h"
#include "tests/Fakes/FakeOneCertificateStore.h"
#include "tests/Fakes/FakeProtections.h"

#include <array>
#include <deque>

namespace Ombry::Fleet {
namespace {

std::size_t WholeSeconds(Duration length) {
    return static_cast<std::size_t>(length.count() / TicksPerSecond);
}

}  // namespace

FleetRun RunFleet(const FleetSettings& settings) {
    Simulation simulation(Start);
    SeededRandom random(settings.seed);
    MemoryDisk disk;
    // What keeps credentials in memory is as it is; for the disk, what the machine does is left out.
    Tests::FakeMachineProtection protection;
    Tests::FakeOneCertificateStore certificates(ClientCommunications::BootstrapCertificateName,
                                                "certificate");
    const Platform::Replace<Platform::IClock> replacedClock(simulation);
    const Platform::Replace<Platform::IRandom> replacedRandom(random);
    const Platform::Replace<Platform::IFiles> replacedFiles(disk);
    const Platform::Replace<Platform::IMachineProtection> replacedProtection(protection);
    const Platform::Replace<Platform::ICertificates> replacedCertificates(certificates);

    FleetRun run{RequestLog(Start, WholeSeconds(settings.length)), {}, {}, 0, 0};
    ModelService service(settings.service, simulation, random, run.log);
    const std::array gateways{service.GatewaysFor(0), service.GatewaysFor(1)};
    bool stopping = false;
    const FleetClient::Surroundings surroundings{simulation,
                                                 random,
                                                 run.outcomes,
                                                 stopping,
                                                 settings.leastPause,
                                                 settings.mostPause,
                                                 settings.gatewayOfEachCall};
    std::deque<FleetClient> clients;
    for (int number = 0; number < settings.clients; ++number) {
        const int datacenter = number % 2;
        const std::string directory = "/" + std::to_string(number);
        FleetClient::Enroll(directory, datacenter);
        FleetClient& client =
            clients.emplace_back(directory, gateways[static_cast<std::size_t>(datacenter)], surroundings);
        simulation.Start([&client] { client.Run(); });
    }
    simulation.RunUntil(Start + settings.length);
    stopping = true;
    // The last calls under way, each with its limit of 300 seconds, and the pauses.
    simulation.RunUntil(Start + settings.length + settings.mostPause + std::chrono::minutes(10));
    run.requestsByInstance = service.RequestsByInstance();
    run.threads = simulation.Fibers();
    run.wakes = simulation.Wakes();
    return run;
}

}  // namespace Ombry::Fleet
