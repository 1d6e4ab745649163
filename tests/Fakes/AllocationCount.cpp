#include "tests/Fakes/AllocationCount.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Of the sanitizers' runtime; not every compiler installs its header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloced)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
#else
#include <cstdlib>
#include <new>
#endif

namespace Ombry::Tests {
namespace {

thread_local std::size_t allocations = 0;
thread_local std::size_t failsAt = 0;  // as `allocations` counts; 0 for none

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizers have operators of their own, which check more than ours would: only listen there.
[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++allocations; }, [](const volatile void*) {});
#endif

}  // namespace

std::size_t AllocationsOfThisThread() {
    return allocations;
}

FailingAllocation::FailingAllocation(std::size_t n) {
    failsAt = allocations + n;
}

FailingAllocation::~FailingAllocation() {
    failsAt = 0;
}

bool FailingAllocation::Failed() const {
    return Fails && allocations >= failsAt;
}

}  // namespace Ombry::Tests

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

void* operator new(std::size_t size) {
    if (++Ombry::Tests::allocations == Ombry::Tests::failsAt) throw std::bad_alloc();
    if (void* const memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif
