// What the whole client costs above the bare HTTP client: the same GET, with the same headers, to the same
// server, through `ServiceGateway` as a program gets it from the library, and through
// `ZephSorrelSyncHttpClient` over a connection pool, with several threads each. Once with a token that
// each call looks up on the disk, where other processes may have replaced it, and once with one that was
// given; and once away from home, where only another datacenter has the service and one call in about fifty
// looks into the lists for a server nearer by.
//
//   bench_gateway [rounds]      201 unless told otherwise

#include "ClientCommunications/CommunicationsParameters.h"
#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/Impl/ClientCommunications.h"
#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/SfsGateway.h"
#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "bench/LocalServer.h"
#include "bench/Measurement.h"
#include "bench/SandboxService.h"
#include "bench/ToolRuns.h"

#include <unistd.h>

#include <barrier>
#include <cstdio>
#include <exception>
#include <functional>
#include <list>
#include <stdexcept>
#include <thread>

namespace Ombry::Bench {
namespace {

using namespace ClientCommunications;
using OmbryZephCore::ZephSorrelSyncHttpClient;

constexpr int DefaultRounds = 201;
constexpr int CallsOfARound = 480;  // all threads together
constexpr const char* Path = "/small";
constexpr const char* ServiceName = "orders";
constexpr const char* RemoteServiceName = "orders-elsewhere";

/// A call in a loop by one thread; made in that thread.
using Caller = std::function<void(int calls)>;

/// An enrolled client, and a service with a registered certificate behind which is the local server.
class EnrolledClient {
public:
    explicit EnrolledClient(const LocalServer& server) {
        const std::string& folder = machine.Path();
        TimeRun({OMBRY_TOOL_HERE_PATH, "configure-bootstrap-url", "-t", SandboxService::InstallToken, "-d",
                 SandboxService::DatacenterId, "-r", sandbox.BaseUrl()},
                0, folder);
        TimeRun({OMBRY_TOOL_HERE_PATH, "enroll-client", "-t", SandboxService::InstallToken, "-nn", "client"},
                0, folder);
        if (chdir(folder.c_str()) != 0) throw std::runtime_error("Cannot enter " + folder);
        const CommunicationsParameters parameters("client");
        communications = MakeClientCommunications(parameters);
        const std::string clientId = CreateCredentials(parameters)->GetClientId();
        Register(server, clientId, ServiceName, SandboxService::DatacenterId);
        Register(server, clientId, RemoteServiceName, SandboxService::OtherDatacenterId);
        gateway = MakeGateway(*communications, ServiceName);

        CommunicationsParameters withFixedToken{std::string()};
        withFixedToken.SetFixedToken(SandboxService::InstallToken);
        fixedTokenCommunications = MakeClientCommunications(withFixedToken);
        fixedTokenGateway = MakeGateway(*fixedTokenCommunications, ServiceName);
        remoteGateway = MakeGateway(*fixedTokenCommunications, RemoteServiceName);
    }

    /// With a token of its own, which each call looks up in the cache on the disk.
    void Call(int calls) { Call(*communications, *gateway, calls); }
    /// With a token that was given to it.
    void CallWithFixedToken(int calls) { Call(*fixedTokenCommunications, *fixedTokenGateway, calls); }
    /// With that token too, to a service of another datacenter alone.
    void CallRemotely(int calls) { Call(*fixedTokenCommunications, *remoteGateway, calls); }

private:
    static std::shared_ptr<IServiceGateway> MakeGateway(IClientCommunications& communications,
                                                        const std::string& serviceName) {
        return communications.GetServiceGatewayFactory()->Create(
            communications.GetServiceFinderFactory()->CreateByName(serviceName));
    }

    static void Call(IClientCommunications& communications, IServiceGateway& gateway, int calls) {
        const auto requests = communications.GetServiceRequestFactory();
        for (int i = 0; i < calls; ++i) {
            const auto response =
                gateway.CallForString(requests->Create("GET", Path, "1"), Cancellation::Token());
            if (response->GetStatusCode() != 200) throw std::runtime_error("The gateway got no answer.");
        }
    }

    void Register(const LocalServer& server, const std::string& clientId, const std::string& serviceName,
                  const std::string& datacenterId) {
        const std::string url = "https://127.0.0.1:" + std::to_string(server.Port());
        SfsGateway::ServiceEnrollment service;
        service.serviceId.Set(MakeGuidText());
        service.serviceName.Set(serviceName);
        service.clientId.Set(clientId);
        service.directUrl.Set(url);
        service.endpointUrl.Set(url);
        service.endpointCert.Set(server.Certificate());
        service.serviceHostname.Set("127.0.0.1");
        service.serviceNamespace.Set("default");
        service.datacenterId.Set(datacenterId);
        SfsGateway::EnrollService(communications, service);
    }

    const SandboxService sandbox;
    const TemporaryFolder machine;
    SecClientConfig::FoldersHere folders;
    const Platform::Testing::Replace<Platform::IKnownFolders> replaced{folders};
    std::shared_ptr<IClientCommunications> communications, fixedTokenCommunications;
    std::shared_ptr<IServiceGateway> gateway, fixedTokenGateway, remoteGateway;
};

/// The bare client in each thread, over one pool.
class BareClient {
public:
    explicit BareClient(const LocalServer& server) : parameters("127.0.0.1", server.Port()), pool(nullptr) {
        parameters.SetUseSSL(true).SetCertificateValidation(
            {OmbryZephCore::ValidateByPublicKey, server.Certificate()});
        pool.Start(300, 300);
    }

    void Call(int calls) {
        ZephSorrelSyncHttpClient client(nullptr, false, parameters, &pool);
        for (int i = 0; i < calls; ++i) {
            for (const auto& [name, value] : headers)
                client.SetHeader(name, value);
            StringWriter writer;
            client.SetDataWriter(&writer);
            client.SetTimeout(100);
            if (client.DoRequest("GET", Path) != 0)
                throw std::runtime_error("The bare client got no answer.");
        }
    }

private:
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

    OmbryZephCore::ZephSorrelConnectionParameters parameters;
    OmbryZephCore::ZephSorrelSyncConnectionPool pool;
    /// Those that the gateway sends, in number and length.
    const std::list<std::pair<std::string, std::string>> headers{
        {"Authorization", "Bearer " + std::string(350, 't')},
        {"Contract-Version", "1"},
        {"Datacenter-Id", SandboxService::DatacenterId},
        {"SF-Destination-Service-Id", "5ad7b0c2-0003-4c00-8000-000000000001"},
        {"SF-Destination-Service-Is-Local-DC", "true"},
        {"SF-Destination-Service-Name", ServiceName},
        {"SF-Destination-Service-Namespace", "default"},
        {"SF-Request-Id", "5ad7b0c2-0004-4c00-8000-000000000001"},
        {"SF-Root-Attempt", "1"},
        {"SF-Root-Correlation-Id", "ClientToService"},
        {"SF-Source-Client-Id", "5ad7b0c2-0005-4c00-8000-000000000001"},
        {"SF-Source-Client-Name", "client"},
        {"SF-Source-Datacenter-Id", SandboxService::DatacenterId}};
};

/// Seconds in which so many threads make the calls of a round.
double TimeThreads(int count, const Caller& caller) {
    std::barrier start(count + 1);
    std::exception_ptr failure;
    std::list<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            try {
                caller(CallsOfARound / count);
            } catch (...) {
                failure = std::current_exception();
            }
        });
    }
    start.arrive_and_wait();
    const double begin = Now();
    for (std::thread& thread : threads)
        thread.join();
    const double end = Now();
    if (failure) std::rethrow_exception(failure);
    return end - begin;
}

void Compare(Report& report, const std::string& name, double target, int threads, int rounds,
             const Caller& gateway, const Caller& bare) {
    std::vector<double> gatewayTimes, bareTimes, ratios;
    for (int round = 0; round <= rounds; ++round) {
        const bool gatewayFirst = round % 2 == 0;
        double whole = 0;
        if (gatewayFirst) whole = TimeThreads(threads, gateway);
        const double other = TimeThreads(threads, bare);
        if (!gatewayFirst) whole = TimeThreads(threads, gateway);
        if (round == 0) continue;  // connections, discovery, the token
        gatewayTimes.push_back(whole);
        bareTimes.push_back(other);
        ratios.push_back(whole / other);
    }
    char remark[96];
    std::snprintf(remark, sizeof remark, "%.0f calls a second against %.0f",
                  CallsOfARound / Median(gatewayTimes), CallsOfARound / Median(bareTimes));
    report.AtMost(name + ", threads: " + std::to_string(threads), Median(ratios), target, remark);
}

void RunAll(int rounds) {
    const LocalServer server;
    EnrolledClient enrolled(server);
    // A token's file is read by each call for the first three seconds of the hour that it is good for.
    enrolled.Call(1);
    sleep(4);
    BareClient bare(server);
    Report report("ServiceGateway, times the bare HTTP client's");
    const Caller bareCalls = [&](int calls) { bare.Call(calls); };
    for (const int threads : {1, 4, 16}) {
        Compare(
            report, "cost of a call", 1.10, threads, rounds, [&](int calls) { enrolled.Call(calls); },
            bareCalls);
    }
    for (const int threads : {1, 4, 16}) {
        Compare(
            report, "with a fixed token", 1.06, threads, rounds,
            [&](int calls) { enrolled.CallWithFixedToken(calls); }, bareCalls);
    }
    for (const int threads : {1, 4, 16}) {
        Compare(
            report, "away from home", 1.10, threads, rounds, [&](int calls) { enrolled.CallRemotely(calls); },
            bareCalls);
    }
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_gateway", RunAll, DefaultRounds, argc, argv);
}
