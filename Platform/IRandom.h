#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <array>
#include <cstdint>
#include <span>

namespace Ombry::Platform {

/// A UUID in the fields of its usual text form (RFC 9562, section 4).
struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};
};

/// Sources of chance. All operations may be called from any thread.
class IRandom {
public:
    virtual ~IRandom() = default;

    /// One unpredictable word, to seed a generator with. Throws `std::runtime_error` if the system has none.
    virtual std::uint32_t SeedWord() = 0;

    /// Fills `bytes` from the cryptographic source of the system.
    virtual Result Bytes(std::span<std::uint8_t> bytes) = 0;

    /// A new random (version 4) UUID; a forked child gets none of its parent's. Throws `std::runtime_error`
    /// if the system has no random bytes; on Windows, whose identifiers are made elsewhere, never.
    virtual Guid NewGuid() = 0;
};

template <>
IRandom& Production<IRandom>();

inline IRandom& Random() {
    return Current<IRandom>();
}

}  // namespace Ombry::Platform
