#pragma once

#include "Platform/SecureWipe.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Ombry::ObjectMapping::Impl {

/// Memory for RapidJSON, in the shape that its `Allocator` concept asks for. The library's own allocator
/// hands a null pointer on when memory runs out, and the library writes through it; this one throws
/// `std::bad_alloc`.
class CheckedAllocator {
public:
    static constexpr bool kNeedFree = true;

    void* Malloc(std::size_t size) { return size == 0 ? nullptr : Checked(std::malloc(size)); }

    /// What it moves may hold a secret: the old place is wiped before it is freed.
    void* Realloc(void* memory, std::size_t oldSize, std::size_t newSize) {
        void* const moved = Malloc(newSize);
        if (!memory) return moved;
        if (moved) std::memcpy(moved, memory, std::min(oldSize, newSize));
        Platform::SecureWipe(memory, oldSize);
        Free(memory);
        return moved;
    }

    static void Free(void* memory) { std::free(memory); }

private:
    static void* Checked(void* memory) {
        if (!memory) throw std::bad_alloc();
        return memory;
    }
};

}  // namespace Ombry::ObjectMapping::Impl
