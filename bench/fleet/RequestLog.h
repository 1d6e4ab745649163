#pragma once

#include "Platform/Time.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Ombry::Fleet {

/// What clients ask for.
enum class Request {
    DiscoveryList,  ///< the instances of discovery, asked for by the maintainer of that list
    TokenSearch,    ///< the instances of the token service
    ServiceSearch,  ///< the instances of the service that is called
    Token,          ///< a token, for a call or to refresh one
    Work            ///< the call that all of this is for
};
inline constexpr std::size_t RequestKinds = 5;

/// What of it discovery and the token service see.
inline const std::vector<Request> ServiceRequests = {Request::DiscoveryList, Request::TokenSearch,
                                                     Request::ServiceSearch, Request::Token};

/// A stretch of the simulation, in seconds from its start.
struct Window {
    std::size_t begin;
    std::size_t end;
};

/// How many requests of each kind arrived in each second, those included that nobody answered.
class RequestLog {
public:
    RequestLog(TimePoint start, std::size_t seconds);

    void Count(Request kind, TimePoint at);

    std::uint64_t Sum(const std::vector<Request>& kinds, Window window) const;
    /// Requests a second in the busiest stretch of `seconds` that lies in the window.
    double Busiest(const std::vector<Request>& kinds, Window window, std::size_t seconds) const;
    double Mean(const std::vector<Request>& kinds, Window window) const;

    std::size_t Seconds() const { return counts.front().size(); }

private:
    const TimePoint start;
    std::array<std::vector<std::uint32_t>, RequestKinds> counts;
};

}  // namespace Ombry::Fleet
