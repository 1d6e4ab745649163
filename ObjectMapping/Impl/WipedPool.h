#pragma once

#include "Platform/SecureWipe.h"
#include "rapidjson/rapidjson.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace Ombry::ObjectMapping::Impl {

/// The memory of a document that is parsed, freed all at once and wiped before that, as far as it was given
/// out: the library's own pool does not say how much of a chunk that was. Throws `std::bad_alloc`. It has of
/// RapidJSON's `Allocator` concept what parsing asks for.
class WipedPool {
public:
    static constexpr bool kNeedFree = false;

    WipedPool() = default;
    ~WipedPool() {
        for (const Chunk& chunk : chunks)
            Platform::SecureWipe(chunk.memory.get(), chunk.used);
    }
    WipedPool(const WipedPool&) = delete;
    WipedPool& operator=(const WipedPool&) = delete;

    void* Malloc(std::size_t size) {
        if (size == 0) return nullptr;
        const std::size_t aligned = RAPIDJSON_ALIGN(size);
        if (chunks.empty() || chunks.back().capacity - chunks.back().used < aligned) AddChunk(aligned);
        Chunk& chunk = chunks.back();
        return chunk.memory.get() + std::exchange(chunk.used, chunk.used + aligned);
    }

    static void Free(void*) {}

private:
    struct Chunk {
        std::unique_ptr<char[]> memory;
        std::size_t capacity;
        std::size_t used;
    };

    void AddChunk(std::size_t atLeast) {
        // Most texts are short, and what is freed in large pieces has the system asked for it again each
        // time.
        constexpr std::size_t kibi = 1024, first = 4 * kibi, further = 64 * kibi;
        const std::size_t capacity = std::max(atLeast, chunks.empty() ? first : further);
        chunks.push_back({std::make_unique_for_overwrite<char[]>(capacity), capacity, 0});
    }

    std::vector<Chunk> chunks;
};

}  // namespace Ombry::ObjectMapping::Impl
