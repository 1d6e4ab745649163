// Two days of a fleet in less than a minute: what 10,000 clients ask of discovery and of the token service,
// with an outage of each and one of a datacenter.
//
//   bench_fleet [CLIENTS [SEED [PICTURE]]]     10000, 1, and no picture
//
// Prints for each stretch of the two days its mean and its busiest minute and second, and these by the mean
// of the two days: what a service that was sized for its mean would have to bear; and the calls of clients
// that failed in it. PICTURE is a file to draw (SVG).

#include "bench/fleet/Days.h"
#include "bench/fleet/RateChart.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace Ombry::Fleet {
namespace {

template <class Number>
bool Read(const char* text, Number& number) {
    const char* const end = text + std::strlen(text);
    const auto parsed = std::from_chars(text, end, number);
    return parsed.ec == std::errc() && parsed.ptr == end && number > 0;
}

std::size_t FailuresIn(const FleetRun& run, Window window) {
    return static_cast<std::size_t>(
        std::count_if(run.outcomes.failures.begin(), run.outcomes.failures.end(), [&](TimePoint failure) {
            const auto second = static_cast<std::size_t>((failure - Start).count() / TicksPerSecond);
            return second >= window.begin && second < window.end;
        }));
}

void Report(const FleetSettings& settings, const FleetRun& run) {
    std::printf("%-32s %9s %8s %8s %8s %11s %11s %8s\n", "requests a second", "requests", "mean", "minute",
                "second", "minute/48h", "second/48h", "failed");
    const Window all{0, run.log.Seconds()};
    for (const Phase& phase : Days::Phases()) {
        const double usual = run.log.Mean(phase.kinds, all);
        const double minute = run.log.Busiest(phase.kinds, phase.window, 60);
        const double second = run.log.Busiest(phase.kinds, phase.window, 1);
        std::printf("%-32s %9llu %8.2f %8.2f %8.0f %10.1fx %10.1fx %8zu\n", phase.name.c_str(),
                    static_cast<unsigned long long>(run.log.Sum(phase.kinds, phase.window)),
                    run.log.Mean(phase.kinds, phase.window), minute, second, minute / usual, second / usual,
                    FailuresIn(run, phase.window));
    }
    std::printf(
        "48 hours: %.2f requests a second; of %llu calls of %d clients %zu failed; %llu threads, %llu "
        "wakes\n",
        run.log.Mean(ServiceRequests, all),
        static_cast<unsigned long long>(run.outcomes.answered + run.outcomes.failures.size()),
        settings.clients, run.outcomes.failures.size(), static_cast<unsigned long long>(run.threads),
        static_cast<unsigned long long>(run.wakes));
    for (const auto& [address, requests] : run.requestsByInstance)
        std::printf("%10llu %s\n", static_cast<unsigned long long>(requests), address.c_str());
}

void Draw(const FleetSettings& settings, const FleetRun& run, const char* path) {
    const RateChart chart(
        "Requests a second of " + std::to_string(settings.clients) +
            " clients in 48 hours: mean of five minutes, and thin above it their busiest second",
        {{"discovery: its own list, refreshed daily", "#1f6fb4", {Request::DiscoveryList}},
         {"discovery: searches for services", "#2a8a3a", {Request::TokenSearch, Request::ServiceSearch}},
         {"token service", "#b4441f", {Request::Token}},
         {"calls", "#555", {Request::Work}}},
        {{"tokens 503", Days::TokensDown},
         {"datacenter silent", Days::DatacenterDown},
         {"discovery refuses", Days::DiscoveryDown}});
    std::ofstream(path) << chart.Svg(run.log);
}

int Main(int argc, char** argv) {
    int clients = 10'000;
    std::uint32_t seed = 1;
    if (argc > 4 || (argc > 1 && !Read(argv[1], clients)) || (argc > 2 && !Read(argv[2], seed))) {
        std::fprintf(stderr, "bench_fleet [CLIENTS [SEED [PICTURE]]]\n");
        return 2;
    }
    const FleetSettings settings = Days::Settings(clients, seed);
    const auto begin = std::chrono::steady_clock::now();
    const FleetRun run = RunFleet(settings);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    Report(settings, run);
    std::printf("%.1f s\n", took.count());
    if (argc > 3) Draw(settings, run, argv[3]);
    return 0;
}

}  // namespace
}  // namespace Ombry::Fleet

int main(int argc, char** argv) {
    return Ombry::Fleet::Main(argc, argv);
}
