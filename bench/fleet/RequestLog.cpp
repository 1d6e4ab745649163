#include "bench/fleet/RequestLog.h"

#include <algorithm>

namespace Ombry::Fleet {

RequestLog::RequestLog(TimePoint start, std::size_t seconds) : start(start) {
    counts.fill(std::vector<std::uint32_t>(seconds));
}

void RequestLog::Count(Request kind, TimePoint at) {
    const auto second = static_cast<std::size_t>((at - start).count() / TicksPerSecond);
    auto& ofKind = counts[static_cast<std::size_t>(kind)];
    if (second < ofKind.size()) ++ofKind[second];
}

std::uint64_t RequestLog::Sum(const std::vector<Request>& kinds, Window window) const {
    std::uint64_t sum = 0;
    for (const Request kind : kinds) {
        const auto& ofKind = counts[static_cast<std::size_t>(kind)];
        for (std::size_t second = window.begin; second < window.end; ++second)
            sum += ofKind[second];
    }
    return sum;
}

double RequestLog::Busiest(const std::vector<Request>& kinds, Window window, std::size_t seconds) const {
    std::uint64_t most = 0;
    for (std::size_t begin = window.begin; begin + seconds <= window.end; begin += seconds)
        most = std::max(most, Sum(kinds, {begin, begin + seconds}));
    return static_cast<double>(most) / static_cast<double>(seconds);
}

double RequestLog::Mean(const std::vector<Request>& kinds, Window window) const {
    return static_cast<double>(Sum(kinds, window)) / static_cast<double>(window.end - window.begin);
}

}  // namespace Ombry::Fleet
