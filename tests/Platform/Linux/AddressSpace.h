#pragma once

#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string_view>

namespace Ombry::Tests {

/// As many bytes as a test wants, and no memory behind them: what is refused for its size alone is refused
/// here too, and whoever reads it all the same is killed.
class AddressSpace {
public:
    explicit AddressSpace(std::size_t size)
        : size(size),
          begin(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (begin == MAP_FAILED) throw std::runtime_error("no room for so many addresses");
    }
    ~AddressSpace() { munmap(begin, size); }
    AddressSpace(const AddressSpace&) = delete;
    AddressSpace& operator=(const AddressSpace&) = delete;

    /// Puts some memory behind the first bytes, with that text in it.
    void BeginWith(std::string_view text) {
        if (mprotect(begin, text.size(), PROT_READ | PROT_WRITE) != 0) throw std::runtime_error("no memory");
        std::memcpy(begin, text.data(), text.size());
    }

    std::string_view Text() const { return {static_cast<const char*>(begin), size}; }
    std::span<const std::uint8_t> Bytes() const { return {static_cast<const std::uint8_t*>(begin), size}; }

private:
    const std::size_t size;
    void* const begin;
};

}  // namespace Ombry::Tests
