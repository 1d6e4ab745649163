#pragma once

#include <cstdint>
#include <random>

namespace Ombry::Tests {

/// The least seed word with which a generator's first number from `least` to `most` is `wanted`: tests use it
/// to pin a draw, and to reach both ends of a range.
inline std::uint32_t SeedThatDraws(int least, int most, int wanted) {
    for (std::uint32_t seed = 1;; ++seed) {
        std::mt19937 generator(seed);
        if (std::uniform_int_distribution<int>(least, most)(generator) == wanted) return seed;
    }
}

}  // namespace Ombry::Tests
