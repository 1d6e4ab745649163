#pragma once

#include <cstdint>
#include <vector>

namespace OmbryZephCore {

/// The headers of a parsed head, on their own: they outlive the parser's copy. Taking the next ones keeps the
/// memory. Not thread-safe.
class ZephHttpHeaderCopy {
public:
    /// Forgets them.
    void Clear() { m_Headers.clear(); }

    /// Visits all headers by name and value, NUL-terminated, in the byte order of their names. The texts are
    /// valid as long as this object lives and keeps these headers.
    template <class Callback>
    void ForEach(Callback callback) const {
        const char* const pBytes = reinterpret_cast<const char*>(m_Bytes.data());
        for (const Header& header : m_Headers)
            callback(pBytes + header.nName, pBytes + header.nValue);
    }

private:
    friend class ZephHttpHeaderParser;

    /// Where the two texts begin, and the first bytes of the name as a number, which decides nearly every
    /// comparison of names.
    struct Header {
        std::uint64_t nNameStart;
        std::uint32_t nName;
        std::uint32_t nValue;
    };

    std::vector<std::uint8_t> m_Bytes;
    std::vector<Header> m_Headers;
};

}  // namespace OmbryZephCore
