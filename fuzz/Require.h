#pragma once

#include <cstdio>
#include <cstdlib>

namespace Ombry::Fuzz {

/// Ends the run, and keeps the input as a finding, where the invariant of a target is broken.
inline void Require(bool holds, const char* what = "the invariant", const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s (%s:%d)\n", what, file, line);
    std::abort();
}

}  // namespace Ombry::Fuzz
