#include "bench/fleet/FleetClient.h"

#include "ClientCommunications/Impl/ClientCommunications.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/FileStorage.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "bench/fleet/ModelService.h"

namespace Ombry::Fleet {
namespace {

// The library's name is that of its facade as well.
namespace Library = ClientCommunications;
namespace MachineFiles = Library::MachineFiles;

constexpr const char* ClientName = "client";
constexpr const char* ServiceName = "v1-print";

}  // namespace

FleetClient::FleetClient(std::string directory,
                         std::shared_ptr<Library::IHttpClientServiceGatewayFactory> http,
                         const Surroundings& surroundings)
    : directory(std::move(directory)), http(std::move(http)), surroundings(surroundings) {}

void FleetClient::Enroll(const std::string& directory, int datacenter) {
    Library::FileStorage(directory + MachineFiles::Bootstrap, false)
        .Save(R"({"ssdsUri": ")" + ModelService::DiscoveryUrl(datacenter) + R"("})");
    Library::FileStorage(directory + MachineFiles::DatacenterId, false)
        .Save("dc" + std::to_string(datacenter));
    Library::CreateClientCredentialsStore(directory, true, nullptr)
        ->Save(std::make_shared<Library::ClientCredentials>(
            std::make_shared<Library::WindowsInMemoryDataProtection>(), ClientName, "id", "secret"));
}

void FleetClient::Run() {
    Library::CommunicationsParameters parameters(ClientName);
    parameters.SetSecurityDirectory(directory);
    Library::ClientCommunications communications(parameters, http);
    communications.StartMaintainer();
    const auto makeGateway = [&] {
        return communications.GetServiceGatewayFactory()->Create(
            communications.GetServiceFinderFactory()->CreateByName(ServiceName));
    };
    // Made once, as a program does that wants it to remember which server works.
    auto gateway = makeGateway();
    while (!surroundings.stopping) {
        if (surroundings.gatewayOfEachCall) gateway = makeGateway();
        if (Call(communications, *gateway)) {
            ++surroundings.outcomes.answered;
        } else {
            surroundings.outcomes.failures.push_back(surroundings.simulation.Now());
        }
        surroundings.simulation.Sleep(
            surroundings.random.Between(surroundings.leastPause, surroundings.mostPause));
    }
}

bool FleetClient::Call(Library::IClientCommunications& communications, Library::IServiceGateway& gateway) {
    const auto request = communications.GetServiceRequestFactory()->Create("GET", "/print/jobs", "1");
    try {
        return gateway.CallForString(request, {})->GetStatusCode() == 200;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace Ombry::Fleet
