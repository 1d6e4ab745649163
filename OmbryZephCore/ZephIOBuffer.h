#pragma once

#include "OmbryZephCore/ZephIOBufferIf.h"

namespace OmbryZephCore {

/// A growable byte buffer that keeps its allocation: it doubles on growth, halves only past a factor of two,
/// and grows in whole blocks of the maximum above that. Slightly changed lengths never reallocate. Belongs to
/// one stage.
class ZephIOBuffer final : public ZephIOBufferIf {
public:
    /// Allocates uninitialised bytes, or returns null. Replaceable, so that tests can make allocations fail;
    /// what it returns is released with `delete[]`.
    using Allocator = std::uint8_t* (*)(std::uint64_t nBytes);

    static constexpr std::uint32_t DefaultMinSize = 4096;
    static constexpr std::uint32_t DefaultMaxSize = 0x1000000;

    /// `nMinSize`: first allocation in bytes, 0 counts as 1. `nMaxSize`: block size for very large lengths,
    /// at least `nMinSize`. Allocates nothing.
    explicit ZephIOBuffer(std::uint32_t nMinSize = DefaultMinSize, std::uint32_t nMaxSize = DefaultMaxSize);
    ~ZephIOBuffer() override;
    ZephIOBuffer(const ZephIOBuffer&) = delete;
    ZephIOBuffer& operator=(const ZephIOBuffer&) = delete;

    std::uint32_t GetLength() const override { return m_Length; }
    std::uint8_t* GetData() override { return m_Data; }
    std::uint32_t SetLength(std::uint32_t nLength) override;

    /// Gives the memory back; as at the beginning.
    void Release();

    /// Bytes allocated.
    std::uint32_t GetCapacity() const { return m_Capacity; }

    /// Puts an allocator in place for the process and returns the one before; for tests.
    static Allocator ReplaceAllocator(Allocator allocator);

    /// Allocates through the allocator in place; for other holders of wire bytes.
    static std::uint8_t* Allocate(std::uint64_t nBytes);

private:
    std::uint64_t CapacityFor(std::uint64_t nNeed) const;
    bool Reallocate(std::uint64_t nSize, std::uint32_t nKeep);

    std::uint32_t m_MinSize;
    std::uint32_t m_MaxSize;
    std::uint32_t m_Length = 0;
    std::uint32_t m_Capacity = 0;
    std::uint8_t* m_Data = nullptr;
};

}  // namespace OmbryZephCore
