#pragma once

#include <cstdlib>
#include <new>

namespace Ombry::ObjectMapping::Impl {

/// Memory for RapidJSON, in the shape that its `Allocator` concept asks for. The library's own allocator
/// hands a null pointer on when memory runs out, and the library writes through it; this one throws
/// `std::bad_alloc`.
class CheckedAllocator {
public:
    static constexpr bool kNeedFree = true;

    void* Malloc(std::size_t size) { return size == 0 ? nullptr : Checked(std::malloc(size)); }

    void* Realloc(void* memory, std::size_t /*oldSize*/, std::size_t newSize) {
        if (newSize != 0) return Checked(std::realloc(memory, newSize));
        Free(memory);
        return nullptr;
    }

    static void Free(void* memory) { std::free(memory); }

private:
    static void* Checked(void* memory) {
        if (!memory) throw std::bad_alloc();
        return memory;
    }
};

}  // namespace Ombry::ObjectMapping::Impl
