#pragma once

#include <cstdint>

namespace Ombry::Bench {

/// Blocks that this process has asked the heap for so far, by whatever library.
std::uint64_t AllocationCount();

}  // namespace Ombry::Bench
