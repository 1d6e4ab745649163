#pragma once

#include "OmbryZephCore/ZephIOBuffer.h"

#include <cstdint>
#include <new>

namespace Ombry::Tests {

/// Puts an allocator in the place of that of the IO buffers for a scope.
class ReplacedAllocator {
public:
    explicit ReplacedAllocator(OmbryZephCore::ZephIOBuffer::Allocator allocator)
        : previous(OmbryZephCore::ZephIOBuffer::ReplaceAllocator(allocator)) {}
    ~ReplacedAllocator() { OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous); }
    ReplacedAllocator(const ReplacedAllocator&) = delete;
    ReplacedAllocator& operator=(const ReplacedAllocator&) = delete;

private:
    OmbryZephCore::ZephIOBuffer::Allocator previous;
};

inline std::uint8_t* RefuseEveryAllocation(std::uint64_t) {
    return nullptr;
}

/// How many allocations `RefuseAfterSome` lets through.
inline int allocationsLeft = 0;

inline std::uint8_t* RefuseAfterSome(std::uint64_t nBytes) {
    return allocationsLeft-- > 0 ? new std::uint8_t[nBytes] : nullptr;
}

/// How many allocations `CountAllocation` has made.
inline int allocationsCounted = 0;

inline std::uint8_t* CountAllocation(std::uint64_t nBytes) {
    ++allocationsCounted;
    return new (std::nothrow) std::uint8_t[nBytes];
}

/// Lets through what a test may really ask for, and refuses the sizes that only a hostile peer names.
inline std::uint8_t* RefuseHugeAllocation(std::uint64_t nBytes) {
    return nBytes > 64 * 1024 * 1024 ? nullptr : new (std::nothrow) std::uint8_t[nBytes];
}

}  // namespace Ombry::Tests
