#pragma once

#include "Platform/IRandom.h"

#include <random>

namespace Ombry::Fleet {

/// Chance that is the same in every run with one seed. For one thread.
class SeededRandom : public Platform::IRandom {
public:
    explicit SeededRandom(std::uint32_t seed) : generator(seed) {}

    std::uint32_t SeedWord() override { return generator(); }

    Platform::Result Bytes(std::span<std::uint8_t> bytes) override {
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(generator());
        return Platform::Result::Success();
    }

    Platform::Guid NewGuid() override {
        Platform::Guid guid;
        guid.data1 = generator();
        for (std::uint8_t& byte : guid.data4)
            byte = static_cast<std::uint8_t>(generator());
        return guid;
    }

    /// Even between the two, both included.
    Duration Between(Duration least, Duration most) {
        return Duration(std::uniform_int_distribution<std::int64_t>(least.count(), most.count())(generator));
    }

private:
    std::mt19937 generator;
};

}  // namespace Ombry::Fleet
