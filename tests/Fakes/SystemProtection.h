#pragma once

#include "Platform/IMemoryProtection.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace Ombry::Tests {

/// Whether memory is another one after it was protected; Wine leaves it as it is.
inline bool SystemProtectsMemory() {
    std::array<std::uint8_t, Platform::IMemoryProtection::BlockSize> block{};
    static_cast<void>(Platform::MemoryProtection().Protect(block, 0));
    return std::any_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte != 0; });
}

}  // namespace Ombry::Tests
