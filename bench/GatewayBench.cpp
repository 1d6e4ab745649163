// What the whole client costs above the bare HTTP client: the same GET, with the same headers, to the same
// server, through `ServiceGateway` as a program gets it from the library, and through
// `ZephSorrelSyncHttpClient` over a connection pool, with several threads each. Once with a token that
// each call looks up on the disk, where other processes may have replaced it, and once with one that was
// given; and once away from home, where only another datacenter has the service and one call in about fifty
// looks into the lists for a server nearer by. Each round makes the calls of both in turn; a figure is the
// median over the rounds of the gateway's time divided by the bare client's, and behind it stand the quarters
// between which half of the rounds lie, and the same of this process's processor time.
//
//   bench_gateway [rounds]      61 unless told otherwise

#include "ClientCommunications/CommunicationsParameters.h"
#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/Impl/ClientCommunications.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/Impl/JwtAuthenticator.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/SfsGateway.h"
#include "ObjectMapping/Serialization.h"
#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "bench/LocalServer.h"
#include "bench/Measurement.h"
#include "bench/SandboxService.h"
#include "bench/ToolRuns.h"

#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <cstdio>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace Ombry::Bench {
namespace {

using namespace ClientCommunications;
using OmbryZephCore::ZephSorrelSyncHttpClient;

constexpr int DefaultRounds = 61;
constexpr int CallsOfARound = 1920;  // of each side, all threads together
constexpr const char* Path = "/small";
constexpr const char* ServiceName = "orders";
constexpr const char* RemoteServiceName = "orders-elsewhere";
constexpr const char* ClientName = "client";

/// GETs one after the other by one thread; the body of the last answer.
using Caller = std::function<std::string(const char* path, int calls)>;

/// What the headers of a request hang on.
struct Sender {
    std::string id;
    std::string name;
    std::string token;
    std::string serviceName;
    bool isLocal;
};

/// Calls through a gateway, and who they are from.
struct GatewayCalls {
    Caller call;
    Sender sender;
};

/// An enrolled client, and services with a registered certificate behind which is the local server.
class EnrolledClient {
public:
    explicit EnrolledClient(const LocalServer& server) {
        const std::string& folder = machine.Path();
        TimeRun({OMBRY_TOOL_HERE_PATH, "configure-bootstrap-url", "-t", SandboxService::InstallToken, "-d",
                 SandboxService::DatacenterId, "-r", sandbox.BaseUrl()},
                0, folder);
        TimeRun(
            {OMBRY_TOOL_HERE_PATH, "enroll-client", "-t", SandboxService::InstallToken, "-nn", ClientName}, 0,
            folder);
        if (chdir(folder.c_str()) != 0) throw std::runtime_error("Cannot enter " + folder);
        communications = MakeClientCommunications(parameters);
        clientId = CreateCredentials(parameters)->GetClientId();
        Register(server, ServiceName, SandboxService::DatacenterId);
        Register(server, RemoteServiceName, SandboxService::OtherDatacenterId);

        CommunicationsParameters withFixedToken{std::string()};
        withFixedToken.SetFixedToken(SandboxService::InstallToken);
        fixedTokenCommunications = MakeClientCommunications(withFixedToken);
    }

    /// With a token of its own, which each call looks up in the cache on the disk.
    GatewayCalls WithCachedToken() {
        const Caller call = CallerOf(communications, ServiceName);
        call(Path, 1);
        // The token's file is read by each call for the first three seconds of the hour that it is good for.
        sleep(4);
        JwtCachedToken cached;
        DirectoryKeyValueStorage tokens(parameters.cacheDirectory + MachineFiles::TokenCache);
        ObjectMapping::DeserializeObject(cached, tokens.GetByKey(ServiceName), nullptr, false);
        return {call, {clientId, ClientName, cached.token.accessToken, ServiceName, true}};
    }
    /// With a token that was given to it.
    GatewayCalls WithFixedToken() { return WithFixedToken(ServiceName, true); }
    /// With that token too, to a service of another datacenter alone.
    GatewayCalls AwayFromHome() { return WithFixedToken(RemoteServiceName, false); }

private:
    GatewayCalls WithFixedToken(const char* serviceName, bool isLocal) {
        return {CallerOf(fixedTokenCommunications, serviceName),
                {"FixedToken", "FixedToken", SandboxService::InstallToken, serviceName, isLocal}};
    }

    static Caller CallerOf(const std::shared_ptr<IClientCommunications>& communications,
                           const char* serviceName) {
        const auto gateway = communications->GetServiceGatewayFactory()->Create(
            communications->GetServiceFinderFactory()->CreateByName(serviceName));
        const auto requests = communications->GetServiceRequestFactory();
        return [gateway, requests](const char* path, int calls) {
            std::string body;
            for (int i = 0; i < calls; ++i) {
                const auto response =
                    gateway->CallForString(requests->Create("GET", path, "1"), Cancellation::Token());
                if (response->GetStatusCode() != 200) throw std::runtime_error("The gateway got no answer.");
                if (i == calls - 1) body = response->GetBody();
            }
            return body;
        };
    }

    void Register(const LocalServer& server, const char* serviceName, const char* datacenterId) {
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
    const CommunicationsParameters parameters{ClientName};
    std::string clientId;
    std::shared_ptr<IClientCommunications> communications, fixedTokenCommunications;
};

/// The bare client in each thread, over one pool, with the headers of a sender.
class BareClient {
public:
    BareClient(const LocalServer& server, const Sender& sender)
        : parameters("127.0.0.1", server.Port()),
          pool(nullptr),
          headers{{"Authorization", "Bearer " + sender.token},
                  {"Contract-Version", "1"},
                  {"Datacenter-Id", SandboxService::DatacenterId},
                  {"SF-Destination-Service-Id", "5ad7b0c2-0003-4c00-8000-000000000001"},
                  {"SF-Destination-Service-Is-Local-DC", sender.isLocal ? "true" : "false"},
                  {"SF-Destination-Service-Name", sender.serviceName},
                  {"SF-Destination-Service-Namespace", "default"},
                  {"SF-Request-Id", "5ad7b0c2-0004-4c00-8000-000000000001"},
                  {"SF-Root-Attempt", "1"},
                  {"SF-Root-Correlation-Id", "ClientToService"},
                  {"SF-Source-Client-Id", sender.id},
                  {"SF-Source-Client-Name", sender.name},
                  {"SF-Source-Datacenter-Id", SandboxService::DatacenterId}} {
        parameters.SetUseSSL(true).SetCertificateValidation(
            {OmbryZephCore::ValidateByPublicKey, server.Certificate()});
        pool.Start(300, 300);
    }

    std::string Call(const char* path, int calls) {
        ZephSorrelSyncHttpClient client(nullptr, false, parameters, &pool);
        std::string body;
        for (int i = 0; i < calls; ++i) {
            for (const auto& [name, value] : headers)
                client.SetHeader(name, value);
            StringWriter writer;
            client.SetDataWriter(&writer);
            client.SetTimeout(100);
            if (client.DoRequest("GET", path) != 0)
                throw std::runtime_error("The bare client got no answer.");
            if (i == calls - 1) body = writer.Body();
        }
        return body;
    }

private:
    class StringWriter : public OmbryZephCore::ZephSyncDataWriterIf {
    public:
        void Begin() override { body.clear(); }
        void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
            body.append(reinterpret_cast<const char*>(pData), nBytes);
        }
        void End() override {}
        const std::string& Body() const { return body; }

    private:
        std::string body;
    };

    OmbryZephCore::ZephSorrelConnectionParameters parameters;
    OmbryZephCore::ZephSorrelSyncConnectionPool pool;
    const std::list<std::pair<std::string, std::string>> headers;
};

/// Seconds, by round.
struct Times {
    std::vector<double> passed;
    std::vector<double> ofProcessor;
};

/// Threads that share the calls of each round, and stay from round to round: what a new thread begins with
/// is no part of a call.
class Threads {
public:
    explicit Threads(int count) : count(count), gate(count + 1) {
        for (int i = 0; i < count; ++i)
            threads.emplace_back([this] { Run(); });
    }
    ~Threads() {
        caller = nullptr;
        gate.arrive_and_wait();
        for (std::thread& thread : threads)
            thread.join();
    }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    void Time(const Caller& newCaller, Times& times) {
        caller = &newCaller;
        const double start = Now(), processorStart = ProcessorTime();
        gate.arrive_and_wait();  // they begin
        gate.arrive_and_wait();  // and all have ended
        times.passed.push_back(Now() - start);
        times.ofProcessor.push_back(ProcessorTime() - processorStart);
        if (failure) std::rethrow_exception(failure);
    }

private:
    void Run() {
        for (gate.arrive_and_wait(); caller; gate.arrive_and_wait()) {
            try {
                (*caller)(Path, CallsOfARound / count);
            } catch (...) {
                const std::lock_guard guard(mutex);
                failure = std::current_exception();
            }
            gate.arrive_and_wait();
        }
    }

    const int count;
    std::barrier<> gate;
    const Caller* caller = nullptr;  // changes while all threads are at the gate
    std::mutex mutex;
    std::exception_ptr failure;
    std::list<std::thread> threads;
};

/// The ratios of all rounds, the least first.
std::vector<double> Ratios(const std::vector<double>& over, const std::vector<double>& under) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < over.size(); ++i)
        ratios.push_back(over[i] / under[i]);
    std::sort(ratios.begin(), ratios.end());
    return ratios;
}

double MicrosecondsOfACall(const std::vector<double>& rounds) {
    return Median(rounds) / CallsOfARound * 1e6;
}

void Compare(Report& report, const std::string& name, double target, int threads, int rounds,
             const Caller& gateway, const Caller& bare) {
    Threads crew(threads);
    Times ofGateway, ofBare, unused;
    crew.Time(gateway, unused);  // connections, discovery, the token
    crew.Time(bare, unused);
    for (int round = 0; round < rounds; ++round) {
        if (round % 2 == 0) crew.Time(gateway, ofGateway);
        crew.Time(bare, ofBare);
        if (round % 2 != 0) crew.Time(gateway, ofGateway);
    }
    const std::vector<double> ratios = Ratios(ofGateway.passed, ofBare.passed);
    char remark[128];
    std::snprintf(remark, sizeof remark,
                  "%.2f to %.2f; %.1f us against %.1f us; processor time %.2f, %.1f us against %.1f us",
                  ratios[ratios.size() / 4], ratios[ratios.size() * 3 / 4],
                  MicrosecondsOfACall(ofGateway.passed), MicrosecondsOfACall(ofBare.passed),
                  Median(Ratios(ofGateway.ofProcessor, ofBare.ofProcessor)),
                  MicrosecondsOfACall(ofGateway.ofProcessor), MicrosecondsOfACall(ofBare.ofProcessor));
    report.AtMost(name + ", threads: " + std::to_string(threads), Median(ratios), target, remark);
}

void CompareAll(Report& report, const std::string& name, double target, int rounds, const LocalServer& server,
                const GatewayCalls& gateway) {
    BareClient client(server, gateway.sender);
    const Caller bare = [&](const char* path, int calls) { return client.Call(path, calls); };
    const std::string length = gateway.call("/length", 1);
    if (length != bare("/length", 1)) throw std::runtime_error("The bare client sends other headers.");
    for (const int threads : {1, 4, 16})
        Compare(report, name, target, threads, rounds, gateway.call, bare);
}

void RunAll(int rounds) {
    const LocalServer server;
    EnrolledClient enrolled(server);
    Report report("ServiceGateway, times the bare HTTP client's");
    CompareAll(report, "cost of a call", 1.10, rounds, server, enrolled.WithCachedToken());
    CompareAll(report, "with a fixed token", 1.06, rounds, server, enrolled.WithFixedToken());
    CompareAll(report, "away from home", 1.10, rounds, server, enrolled.AwayFromHome());
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_gateway", RunAll, DefaultRounds, argc, argv);
}
