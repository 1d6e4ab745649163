#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <ratio>

namespace Ombry {

/// The one representation of time in the tree: signed 64-bit counts of 100-nanosecond ticks, time points
/// counted from 1970-01-01T00:00:00Z. It reaches the year 9999, which nanoseconds in 64 bits do not.
using Duration = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
using TimePoint = std::chrono::time_point<std::chrono::system_clock, Duration>;

inline constexpr std::int64_t TicksPerSecond = 10'000'000;

/// Sum of two tick counts that stops at the ends of the range instead of overflowing.
constexpr std::int64_t SaturatingAdd(std::int64_t left, std::int64_t right) noexcept {
    using Limits = std::numeric_limits<std::int64_t>;
    if (right > 0 && left > Limits::max() - right) return Limits::max();
    if (right < 0 && left < Limits::min() - right) return Limits::min();
    return left + right;
}

constexpr TimePoint SaturatingAdd(TimePoint left, Duration right) noexcept {
    return TimePoint(Duration(SaturatingAdd(left.time_since_epoch().count(), right.count())));
}

/// Whole seconds as ticks, stopping at the ends of the range.
constexpr std::int64_t SecondsToTicks(std::int64_t seconds) noexcept {
    using Limits = std::numeric_limits<std::int64_t>;
    if (seconds > Limits::max() / TicksPerSecond) return Limits::max();
    if (seconds < Limits::min() / TicksPerSecond) return Limits::min();
    return seconds * TicksPerSecond;
}

}  // namespace Ombry
