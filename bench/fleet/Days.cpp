#include "bench/fleet/Days.h"

namespace Ombry::Fleet::Days {

FleetSettings Settings(int clients, std::uint32_t seed) {
    FleetSettings settings;
    settings.clients = clients;
    settings.seed = seed;
    settings.service.outages = {{TokensDown, Failure::Unavailable, Role::Tokens, {}},
                                {DatacenterDown, Failure::Silent, {}, 0},
                                {DiscoveryDown, Failure::Refused, Role::Discovery, {}}};
    return settings;
}

std::vector<Phase> Phases() {
    const auto hourAfter = [](Window outage) { return Window{outage.end, outage.end + Hour}; };
    return {
        {"start of all at once", ServiceRequests, {0, Hour / 6}},
        {"token refresh", {Request::Token}, {2 * Hour, 8 * Hour}},
        {"token service down", ServiceRequests, TokensDown},
        {"hour after it", ServiceRequests, hourAfter(TokensDown)},
        {"one datacenter down", ServiceRequests, DatacenterDown},
        {"hour after it", ServiceRequests, hourAfter(DatacenterDown)},
        {"discovery down", ServiceRequests, DiscoveryDown},
        {"hour after it", ServiceRequests, hourAfter(DiscoveryDown)},
        {"daily discovery refresh, first", {Request::DiscoveryList}, {17 * Hour, 25 * Hour}},
        {"daily discovery refresh, second", {Request::DiscoveryList}, {35 * Hour, 48 * Hour}},
    };
}

}  // namespace Ombry::Fleet::Days
