// Replaces the allocating functions of the C library for the whole process; operator new ends here too. Only
// programs that report the count are linked with this file, so that no time is measured through it.

#include "bench/AllocationCount.h"

#include <atomic>
#include <cstddef>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

}  // extern "C"

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// The shared libraries must find these.
#define OMBRY_EXPORTED __attribute__((visibility("default")))

extern "C" {

OMBRY_EXPORTED void* malloc(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

OMBRY_EXPORTED void* calloc(std::size_t count, std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

OMBRY_EXPORTED void* realloc(void* block, std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}

}  // extern "C"

std::uint64_t Ombry::Bench::AllocationCount() {
    return allocations.load(std::memory_order_relaxed);
}
