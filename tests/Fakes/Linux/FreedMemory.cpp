#include "tests/Fakes/FreedMemory.h"

#include <cstring>
#include <string_view>

#if defined(__SANITIZE_ADDRESS__)
// Of the sanitizer's runtime; not every compiler installs its headers.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloced)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* memory);
#elif !defined(__SANITIZE_THREAD__)
#include <malloc.h>

extern "C" void __libc_free(void* memory);
#endif

namespace Ombry::Tests {
namespace {

thread_local FreedMemory* looking = nullptr;

/// The C library takes what is larger from the system and gives it back: nobody gets it next.
constexpr std::size_t LargestOfTheHeap = std::size_t{32} << 20;

/// Looks at a block that is about to be freed and wipes it, so that whoever gets it next does not seem to
/// leave in it what others left.
[[maybe_unused]] void Take(void* memory, std::size_t size) {
    if (looking) looking->Look({static_cast<const char*>(memory), size});
    if (size <= LargestOfTheHeap) std::memset(memory, 0, size);
}

#if defined(__SANITIZE_ADDRESS__)
[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) {},
    [](const volatile void* memory) {
        if (memory) Take(const_cast<void*>(memory), __sanitizer_get_allocated_size(memory));
    });
#endif

}  // namespace

// Emptying a string overwrites its first byte and leaves the others.
FreedMemory::FreedMemory(const std::string& text) : secret(text.substr(1)) {
    looking = this;
}

FreedMemory::~FreedMemory() {
    looking = nullptr;
}

void FreedMemory::Look(std::string_view block) {
    if (block.find(secret) != std::string_view::npos) ++found;
}

}  // namespace Ombry::Tests

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// Stands before the C library's own, which `operator delete` calls as well.
extern "C" __attribute__((visibility("default"))) void free(void* memory) noexcept {
    if (memory) Ombry::Tests::Take(memory, malloc_usable_size(memory));
    __libc_free(memory);
}

#endif
