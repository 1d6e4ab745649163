#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace Ombry::Platform {

/// Enciphers memory in place under a key that lives and dies with the process. The shape is that of
/// CryptProtectMemory: lengths are whole blocks, and a length of 0 or of no whole blocks fails with
/// number 87. `flags` name the circle that may undo it, 0 the process, which is the narrowest; a platform may
/// narrow it: Linux knows the process alone, Windows hands them on.
class IMemoryProtection {
public:
    static constexpr std::size_t BlockSize = 16;
    static constexpr int InvalidParameter = 87;

    virtual ~IMemoryProtection() = default;
    virtual Result Protect(std::span<std::uint8_t> memory, std::uint32_t flags) = 0;
    virtual Result Unprotect(std::span<std::uint8_t> memory, std::uint32_t flags) = 0;
};

template <>
IMemoryProtection& Production<IMemoryProtection>();

inline IMemoryProtection& MemoryProtection() {
    return Current<IMemoryProtection>();
}

}  // namespace Ombry::Platform
