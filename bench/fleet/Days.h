#pragma once

#include "bench/fleet/Fleet.h"

#include <string>
#include <vector>

namespace Ombry::Fleet {

/// A stretch of the two days that the report is about.
struct Phase {
    std::string name;
    std::vector<Request> kinds;
    Window window;
};

/// Two days of a fleet: all of it starts at once; the token service, discovery and one datacenter are down
/// for half an hour each, and each in another way.
namespace Days {

FleetSettings Settings(int clients, std::uint32_t seed);

/// What is reported of them, in the order of the report.
std::vector<Phase> Phases();

inline constexpr std::size_t Hour = 3600;

// Half an hour each. Discovery goes while the lists of the first day are being refreshed.
inline constexpr Window TokensDown{8 * Hour, 8 * Hour + Hour / 2};
inline constexpr Window DatacenterDown{14 * Hour, 14 * Hour + Hour / 2};
inline constexpr Window DiscoveryDown{20 * Hour, 20 * Hour + Hour / 2};

}  // namespace Days

}  // namespace Ombry::Fleet
