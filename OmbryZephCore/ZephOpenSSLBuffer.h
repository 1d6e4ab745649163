#pragma once

#include "OmbryZephCore/ZephIOBuffer.h"

#include <cstdint>
#include <utility>

struct bio_st;

namespace OmbryZephCore {

/// Bytes between a TLS session and the stage around it, first in, first out: the session sees a BIO, the
/// stage calls it directly. Keeps the memory of the most that it
/// held since it gave any back. One thread at a time.
class ZephOpenSSLBuffer {
public:
    ZephOpenSSLBuffer() = default;
    ZephOpenSSLBuffer(const ZephOpenSSLBuffer&) = delete;
    ZephOpenSSLBuffer& operator=(const ZephOpenSSLBuffer&) = delete;

    /// A BIO that reads from here and writes to here; the caller's, and of no use without this object. Null
    /// if there is no memory.
    bio_st* MakeBio();

    std::uint32_t Pending() const { return m_End - m_Begin; }
    /// False, and nothing is added, if there is no memory.
    bool Append(const std::uint8_t* pBytes, std::uint32_t nBytes);
    /// At most `nBytes` of the oldest bytes; how many.
    std::uint32_t Take(std::uint8_t* pBytes, std::uint32_t nBytes);
    /// Whether the session has asked for bytes in vain since the last call.
    bool WasAskedInVain() { return std::exchange(m_AskedInVain, false); }
    void NoteAskedInVain() { m_AskedInVain = true; }
    void Clear() { m_Begin = m_End = 0; }
    /// Gives the memory back, if nothing is in it.
    void ReleaseIdleMemory() {
        if (Pending() == 0) m_Buffer.Release();
    }

private:
    ZephIOBuffer m_Buffer;
    std::uint32_t m_Begin = 0;
    std::uint32_t m_End = 0;
    bool m_AskedInVain = false;
};

}  // namespace OmbryZephCore
