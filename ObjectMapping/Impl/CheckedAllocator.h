#pragma once

#include "Platform/SecureWipe.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Ombry::ObjectMapping::Impl {

/// Memory for RapidJSON, in the shape that its `Allocator` concept asks for. The library's own allocator
/// hands a null pointer on when memory runs out, and the library writes through it; this one throws
/// `std::bad_alloc`. A block may have held a secret and is wiped before it is freed; the library frees it
/// without its length, which therefore stands in front of it.
class CheckedAllocator {
public:
    static constexpr bool kNeedFree = true;

    void* Malloc(std::size_t size) {
        if (size == 0) return nullptr;
        void* const memory = size <= SIZE_MAX - sizeof(Front) ? std::malloc(sizeof(Front) + size) : nullptr;
        if (!memory) throw std::bad_alloc();
        return new (memory) Front{size} + 1;
    }

    void* Realloc(void* memory, std::size_t oldSize, std::size_t newSize) {
        void* const moved = Malloc(newSize);
        if (memory && moved) std::memcpy(moved, memory, std::min(oldSize, newSize));
        Free(memory);
        return moved;
    }

    static void Free(void* memory) {
        if (!memory) return;
        Front* const front = static_cast<Front*>(memory) - 1;
        Platform::SecureWipe(memory, front->size);
        std::free(front);
    }

private:
    struct alignas(std::max_align_t) Front {
        std::size_t size;
    };
};

}  // namespace Ombry::ObjectMapping::Impl
