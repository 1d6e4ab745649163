#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

namespace Ombry::Doctor {

/// Where the state lies, and whether each folder of it is one.
Findings CheckPlace(const Machine& machine);
/// Who owns it.
Findings CheckOwners(const Machine& machine);
/// Whether others than the owner may use it.
Findings CheckModes(const Machine& machine);
/// What killed runs left behind.
Findings CheckLeftovers(const Machine& machine);
/// Whether anything comes from the future.
Findings CheckClock(const Machine& machine);

/// Time that two clocks may differ by and still agree.
inline constexpr Duration ClockTolerance = std::chrono::minutes(1);

}  // namespace Ombry::Doctor
