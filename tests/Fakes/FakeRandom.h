#pragma once

#include "Platform/IRandom.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// Chance without surprise: the seed word is fixed, bytes count up, and the n-th GUID has n in its first
/// field.
class FakeRandom : public Platform::IRandom {
public:
    explicit FakeRandom(std::uint32_t seed = 5489) : seed(seed) {}

    std::uint32_t SeedWord() override { return seed; }

    Platform::Result Bytes(std::span<std::uint8_t> bytes) override {
        std::lock_guard guard(mutex);
        if (bytesError != 0) return Platform::Result::Failure(bytesError);
        for (std::uint8_t& byte : bytes)
            byte = next++;
        return Platform::Result::Success();
    }

    Platform::Guid NewGuid() override {
        std::lock_guard guard(mutex);
        Platform::Guid guid;
        guid.data1 = ++guids;
        guid.data2 = 0x0203;
        guid.data3 = 0x4405;
        guid.data4 = {0x86, 0x07, 0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d};
        return guid;
    }

    /// The text of the n-th GUID, counted from 1.
    static std::string GuidText(std::uint32_t n) {
        char text[37];
        std::snprintf(text, sizeof text, "%08x-0203-4405-8607-08090a0b0c0d", n);
        return text;
    }

    void FailBytes(int error) {
        std::lock_guard guard(mutex);
        bytesError = error;
    }

private:
    const std::uint32_t seed;
    std::mutex mutex;
    std::uint8_t next = 0;
    std::uint32_t guids = 0;
    int bytesError = 0;
};

}  // namespace Ombry::Tests
