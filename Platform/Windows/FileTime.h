#pragma once

#include "Platform/Time.h"

namespace Ombry::Platform::Windows {

/// The point in time that the system writes as a number of ticks since 1601.
constexpr TimePoint TimeOf(std::int64_t ticks) {
    constexpr std::int64_t secondsBefore1970 = 11'644'473'600;
    return TimePoint(Duration(ticks - secondsBefore1970 * TicksPerSecond));
}

}  // namespace Ombry::Platform::Windows
