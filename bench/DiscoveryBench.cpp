// A discovery answer of 1, 100 and 10,000 instances: read from the wire, found again in the cache on the
// disk, and a server chosen from it.

#include "ClientCommunications/FoundServicesDto.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinderFactory.h"
#include "ClientCommunications/Impl/ServiceFinder.h"
#include "ObjectMapping/Serialization.h"
#include "bench/Measurement.h"

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <list>
#include <string>

namespace Ombry::Bench {
namespace {

using namespace ClientCommunications;

FoundServicesDto MakeAnswer(std::int64_t count) {
    FoundServicesDto answer;
    answer.expiryTime += 86400;
    for (std::int64_t i = 0; i < count; ++i) {
        ServiceDto& service = (i % 2 == 0 ? answer.local : answer.remote).emplace_back();
        service.serviceHostname = "host-" + std::to_string(i) + ".example.org";
        service.serviceNamespace = "default";
        service.id = "5ad7b0c2-0001-4c00-8000-" + std::to_string(100000000000 + i);
        service.serviceName = "orders";
        service.endpointUrl = "https://" + service.serviceHostname + ":8443/orders";
        service.endpointCert = std::string(600, 'M');
    }
    return answer;
}

std::string MakeText(std::int64_t count) {
    FoundServicesDto answer = MakeAnswer(count);
    return ObjectMapping::SerializeObject(answer, nullptr);
}

/// Beside the parse of the same text into RapidJSON's document, in turn; the counter is ours divided by that.
void DiscoveryRead(benchmark::State& state) {
    const std::string text = MakeText(state.range(0));
    double ourSeconds = 0, plainSeconds = 0;
    for (auto _ : state) {
        const double start = Now();
        {
            FoundServicesDto answer;
            ObjectMapping::DeserializeObject(answer, text, nullptr, false);
            benchmark::DoNotOptimize(std::make_shared<FoundServices>(std::move(answer)));
        }
        const double between = Now();
        {
            rapidjson::Document document;
            document.Parse(text.data(), text.size());
            if (document.HasParseError()) state.SkipWithError("RapidJSON refused the text.");
        }
        const double end = Now();
        state.SetIterationTime(between - start);
        ourSeconds += between - start;
        plainSeconds += end - between;
    }
    state.counters["times_rapidjson_parse"] = ourSeconds / plainSeconds;
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(DiscoveryRead)->Arg(1)->Arg(100)->Arg(10000)->UseManualTime();

void DiscoveryFromCache(benchmark::State& state) {
    const TemporaryFolder folder;
    const std::string path = "/services/services/secure/name/orders";
    const auto cache = std::make_shared<DirectoryKeyValueStorage>(folder.Path("entries"));
    cache->SetByKey(path, MakeText(state.range(0)));
    ServiceFinder finder(nullptr, nullptr, cache, nullptr, path);  // a fresh answer needs no gateway
    for (auto _ : state)
        benchmark::DoNotOptimize(finder.Find(Cancellation::Token()));
}
BENCHMARK(DiscoveryFromCache)->Arg(1)->Arg(100)->Arg(10000);

void DiscoveryChoice(benchmark::State& state) {
    const FoundServices found(MakeAnswer(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(found.GetLocal());
        benchmark::DoNotOptimize(found.GetRemote());
    }
}
BENCHMARK(DiscoveryChoice)->Arg(1)->Arg(100)->Arg(10000);

class KnownServices : public IServiceFinder {
public:
    explicit KnownServices(std::int64_t count) : found(std::make_shared<FoundServices>(MakeAnswer(count))) {}

    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData>,
                                         Cancellation::Token) override {
        return found;
    }
    std::shared_ptr<IFoundServices> Find(Cancellation::Token) override { return found; }

private:
    const std::shared_ptr<IFoundServices> found;
};

/// Without the thread of the real one, which would make each counted reference dearer.
class NothingFailed : public IFailedServices {
public:
    FailureInfo Get(const std::string&) override { return FailureInfo(); }
    void RecordFailure(const std::string&, bool) override {}
    void Remove(const std::string&) override {}
};

/// The first choice of a gateway, from the two readings to the server.
void GatewayChoice(benchmark::State& state) {
    const auto finder = std::make_shared<KnownServices>(state.range(0));
    const auto failed = std::make_shared<NothingFailed>();
    for (auto _ : state) {
        const auto policy =
            std::make_shared<IterateAfterMaxFailuresPolicyCandidateFinderFactory>(failed, nullptr, 1);
        const auto candidates = policy->Create(finder);
        benchmark::DoNotOptimize(candidates->GetNextCandidate(Cancellation::Token()));
        candidates->MarkSuccess();
    }
}
BENCHMARK(GatewayChoice)->Arg(1)->Arg(100)->Arg(10000);

/// What the lists cost that a choice is made from, in any order: a node and a reference for each server.
void DiscoveryListsAlone(benchmark::State& state) {
    const FoundServices found(MakeAnswer(state.range(0)));
    const auto services = found.GetAll();
    for (auto _ : state)
        benchmark::DoNotOptimize(std::list(services));
}
BENCHMARK(DiscoveryListsAlone)->Arg(1)->Arg(100)->Arg(10000);

}  // namespace
}  // namespace Ombry::Bench
