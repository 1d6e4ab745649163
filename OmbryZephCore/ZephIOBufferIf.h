#pragma once

#include <cstdint>

namespace OmbryZephCore {

/// A growable byte buffer, as its users see it.
class ZephIOBufferIf {
public:
    virtual ~ZephIOBufferIf() = default;
    virtual std::uint32_t GetLength() const = 0;
    /// Null until the first `SetLength`; invalid after each.
    virtual std::uint8_t* GetData() = 0;
    /// 0 or `eRC_OutOfMemory`, which leaves the buffer as it was. New bytes are not cleared.
    virtual std::uint32_t SetLength(std::uint32_t nLength) = 0;
};

}  // namespace OmbryZephCore
