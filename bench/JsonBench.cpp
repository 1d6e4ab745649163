// The JSON reader and writer of the mapping beside hand-written code over plain RapidJSON, on the same
// records. Each iteration runs both; the reported time is the mapper's, the counter its speed as a share of
// RapidJSON's.

#include "ClientCommunications/ServiceDto.h"
#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/Serialization.h"
#include "bench/Measurement.h"

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <list>
#include <stdexcept>
#include <string>

namespace Ombry::Bench {
namespace {

using ClientCommunications::ServiceDto;

class Services : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override {
        ObjectMapping::ListArray array(services);
        mapper.Field("services", array, nullptr);
    }
    void Reset() override { services.clear(); }

    std::list<ServiceDto> services;
};

Services MakeServices(int count) {
    Services made;
    for (int i = 0; i < count; ++i) {
        ServiceDto service;
        service.serviceHostname = "host-" + std::to_string(i) + ".example.org";
        service.serviceNamespace = "default";
        service.id = "5ad7b0c2-0001-4c00-8000-" + std::to_string(100000000000 + i);
        service.serviceName = "orders";
        service.endpointUrl = "https://" + service.serviceHostname + ":8443/orders";
        service.endpointCert = std::string(1200, 'M');
        for (int p = 0; p < 3; ++p) {
            service.properties.emplace_back();
            service.properties.back().key = "property" + std::to_string(p);
            service.properties.back().value = "a value with a \"quoted\" word";
        }
        made.services.push_back(service);
    }
    return made;
}

std::string Text(const rapidjson::Value& object, const char* name) {
    const rapidjson::Value& value = object[name];
    return {value.GetString(), value.GetStringLength()};
}

Services ReadPlainly(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    if (document.HasParseError()) throw std::runtime_error("RapidJSON refused the text.");
    Services read;
    for (const rapidjson::Value& from : document["services"].GetArray()) {
        ServiceDto& to = read.services.emplace_back();
        to.serviceHostname = Text(from, "serviceHostname");
        to.serviceNamespace = Text(from, "serviceNamespace");
        to.id = Text(from, "id");
        to.serviceName = Text(from, "serviceName");
        to.endpointUrl = Text(from, "endpointUrl");
        to.endpointCert = Text(from, "endpointCert");
        for (const rapidjson::Value& property : from["properties"].GetArray()) {
            to.properties.emplace_back();
            to.properties.back().key = Text(property, "key");
            to.properties.back().value = Text(property, "value");
        }
    }
    return read;
}

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void Member(Writer& writer, const char* name, const std::string& value) {
    writer.Key(name);
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

std::string WritePlainly(const Services& services) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("services");
    writer.StartArray();
    for (const ServiceDto& service : services.services) {
        writer.StartObject();
        Member(writer, "serviceHostname", service.serviceHostname);
        Member(writer, "serviceNamespace", service.serviceNamespace);
        Member(writer, "id", service.id);
        Member(writer, "serviceName", service.serviceName);
        Member(writer, "endpointUrl", service.endpointUrl);
        Member(writer, "endpointCert", service.endpointCert);
        writer.Key("properties");
        writer.StartArray();
        for (const ServiceDto::Property& property : service.properties) {
            writer.StartObject();
            Member(writer, "key", property.key);
            Member(writer, "value", property.value);
            writer.EndObject();
        }
        writer.EndArray();
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return {buffer.GetString(), buffer.GetSize()};
}

/// Runs both in turn and reports the ratio of their times.
template <class Ours, class Plain>
void Compare(benchmark::State& state, Ours ours, Plain plain) {
    double ourSeconds = 0, plainSeconds = 0;
    for (auto _ : state) {
        const double start = Now();
        ours();
        const double between = Now();
        plain();
        const double end = Now();
        state.SetIterationTime(between - start);
        ourSeconds += between - start;
        plainSeconds += end - between;
    }
    state.counters["times_rapidjson_speed"] = plainSeconds / ourSeconds;
}

void ReadJson(benchmark::State& state) {
    Services services = MakeServices(static_cast<int>(state.range(0)));
    const std::string text = ObjectMapping::SerializeObject(services, nullptr);
    if (ReadPlainly(text).services.size() != services.services.size())
        state.SkipWithError("Records were lost.");
    Compare(
        state,
        [&] {
            Services read;
            ObjectMapping::DeserializeObject(read, text, nullptr, false);
            benchmark::DoNotOptimize(read.services.size());
        },
        [&] { benchmark::DoNotOptimize(ReadPlainly(text).services.size()); });
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(ReadJson)->Arg(1)->Arg(100)->UseManualTime();

void WriteJson(benchmark::State& state) {
    Services services = MakeServices(static_cast<int>(state.range(0)));
    Compare(
        state, [&] { benchmark::DoNotOptimize(ObjectMapping::SerializeObject(services, nullptr).size()); },
        [&] { benchmark::DoNotOptimize(WritePlainly(services).size()); });
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(WritePlainly(services).size()));
}
BENCHMARK(WriteJson)->Arg(1)->Arg(100)->UseManualTime();

}  // namespace
}  // namespace Ombry::Bench
