#pragma once

#include <cstddef>

namespace Ombry::Tests {

/// Allocations that the calling thread has made so far with `new`. An executable that uses it compiles one
/// source that counts them.
std::size_t AllocationsOfThisThread();

}  // namespace Ombry::Tests
