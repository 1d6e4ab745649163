#include "tests/Fakes/FreedMemory.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace Ombry::Tests {
namespace {

thread_local FreedMemory* looking = nullptr;

/// Looks at a block that is about to be freed and wipes it, so that whoever gets it next does not seem to
/// leave in it what others left.
void Take(void* memory) {
    const std::size_t size = _msize(memory);
    if (looking) looking->Look({static_cast<const char*>(memory), size});
    std::memset(memory, 0, size);
}

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

// What the C library frees of its own cannot be seen; what is written in C++ comes here.
void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    if (!memory) return;
    Ombry::Tests::Take(memory);
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
