#pragma once

#include "bench/fleet/FleetClient.h"
#include "bench/fleet/ModelService.h"
#include "bench/fleet/RequestLog.h"

#include <cstdint>
#include <map>
#include <string>

namespace Ombry::Fleet {

struct FleetSettings {
    int clients = 10'000;
    std::uint32_t seed = 1;
    Duration length = std::chrono::hours(48);
    /// Between two calls of a client, drawn anew each time.
    Duration leastPause = std::chrono::minutes(30);
    Duration mostPause = std::chrono::minutes(90);
    /// Whether a client makes a gateway for each call, and so keeps no server in mind that works.
    bool gatewayOfEachCall = false;
    ServiceSettings service;
};

/// What a run showed. One seed gives one run, to the last request.
struct FleetRun {
    RequestLog log;
    Outcomes outcomes;
    std::map<std::string, std::uint64_t> requestsByInstance;  ///< by address
    std::uint64_t threads;                                    ///< of all clients
    std::uint64_t wakes;                                      ///< how often one of them went on
};

/// When each run begins.
inline constexpr TimePoint Start{Duration(SecondsToTicks(1'600'000'000))};

/// Starts all clients at once, on machines that were just enrolled, and lets the time pass.
FleetRun RunFleet(const FleetSettings& settings);

}  // namespace Ombry::Fleet
