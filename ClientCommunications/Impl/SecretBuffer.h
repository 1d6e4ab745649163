#pragma once

#include "Platform/SecureWipe.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string>

namespace Ombry::ClientCommunications {

/// Memory for a plain secret, outside any string's allocator; wiped before it is freed, on every way out.
class SecretBuffer {
public:
    explicit SecretBuffer(std::size_t size)
        : bytes(static_cast<std::uint8_t*>(std::malloc(size))), size(size) {
        if (!bytes) throw std::bad_alloc();
    }
    ~SecretBuffer() {
        Platform::SecureWipe(bytes, size);
        std::free(bytes);
    }
    SecretBuffer(const SecretBuffer&) = delete;
    SecretBuffer& operator=(const SecretBuffer&) = delete;

    std::span<std::uint8_t> Bytes() { return {bytes, size}; }

private:
    std::uint8_t* bytes;
    std::size_t size;
};

using Platform::ScopedWipe;

}  // namespace Ombry::ClientCommunications
