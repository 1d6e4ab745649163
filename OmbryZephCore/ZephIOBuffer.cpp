#include "OmbryZephCore/ZephIOBuffer.h"

#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>

namespace OmbryZephCore {

namespace {

std::uint8_t* AllocateUninitialised(std::uint64_t nBytes) {
    return new (std::nothrow) std::uint8_t[nBytes];
}

std::atomic<ZephIOBuffer::Allocator> currentAllocator{&AllocateUninitialised};

}  // namespace

ZephIOBuffer::ZephIOBuffer(std::uint32_t nMinSize, std::uint32_t nMaxSize)
    : m_MinSize(std::max<std::uint32_t>(nMinSize, 1)), m_MaxSize(std::max(nMaxSize, m_MinSize)) {}

ZephIOBuffer::~ZephIOBuffer() {
    delete[] m_Data;
}

void ZephIOBuffer::Release() {
    delete[] m_Data;
    m_Data = nullptr;
    m_Length = m_Capacity = 0;
}

ZephIOBuffer::Allocator ZephIOBuffer::ReplaceAllocator(Allocator allocator) {
    return currentAllocator.exchange(allocator);
}

std::uint8_t* ZephIOBuffer::Allocate(std::uint64_t nBytes) {
    return currentAllocator.load(std::memory_order_relaxed)(nBytes);
}

std::uint32_t ZephIOBuffer::SetLength(std::uint32_t nLength) {
    const std::uint32_t nOldLength = m_Length;
    const std::uint32_t nKeep = std::min(nOldLength, nLength);
    m_Length = nKeep;

    // A length of 0 still gets a valid pointer.
    const std::uint64_t nSize = CapacityFor(std::max<std::uint32_t>(nLength, 1));
    if (nSize != m_Capacity && !Reallocate(nSize, nKeep)) {
        m_Length = nOldLength;
        return eRC_OutOfMemory;
    }
    m_Length = nLength;
    return eRC_Success;
}

// The capacity that suits `nNeed` bytes; the present one if nothing has to change. In 64 bits, since whole
// blocks and doubling can pass what 32 bits hold.
std::uint64_t ZephIOBuffer::CapacityFor(std::uint64_t nNeed) const {
    const bool bFits = nNeed <= m_Capacity;
    if (nNeed > m_MaxSize) {
        const std::uint64_t nBlocks = (nNeed + m_MaxSize - 1) / m_MaxSize;
        if (bFits && m_Capacity / m_MaxSize == nBlocks) return m_Capacity;
        return nBlocks * m_MaxSize;
    }

    std::uint64_t nSize = m_Capacity == 0 ? m_MinSize : m_Capacity;
    if (bFits) {
        while (nSize > 2 * nNeed && nSize > m_MinSize)
            nSize /= 2;
    } else {
        while (nSize < nNeed)
            nSize *= 2;
    }
    return nSize;
}

bool ZephIOBuffer::Reallocate(std::uint64_t nSize, std::uint32_t nKeep) {
    if (nSize > std::numeric_limits<std::uint32_t>::max()) return false;
    std::uint8_t* pNew = Allocate(nSize);
    if (!pNew) return false;
    if (nKeep != 0) std::memcpy(pNew, m_Data, nKeep);
    delete[] m_Data;
    m_Data = pNew;
    m_Capacity = static_cast<std::uint32_t>(nSize);
    return true;
}

}  // namespace OmbryZephCore
