#include "OmbryZephCore/ZephHttpHeaderParser.h"

#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

namespace OmbryZephCore {
namespace {

constexpr std::size_t LineEndLength = 2;

// The character classes are those of ASCII: a head means the same under every locale.
bool IsBlank(std::uint8_t byte) {
    return byte == ' ' || byte == '\t';
}

bool IsBlankOrLineEnd(std::uint8_t byte) {
    return byte <= ' ' && (IsBlank(byte) || byte == '\r' || byte == '\n');
}

// TAB is not a separator of the start line.
bool IsTokenEnd(std::uint8_t byte) {
    return byte == ' ' || byte == '\r' || byte == '\n';
}

bool IsLineEnd(const std::uint8_t* pAt, const std::uint8_t* pEnd) {
    return pEnd - pAt >= 2 && pAt[0] == '\r' && pAt[1] == '\n';
}

const char* Text(const std::uint8_t* pAt) {
    return reinterpret_cast<const char*>(pAt);
}

// Ends the text that begins at `pStart` at `pEnd`, and cuts the blanks and line ends in front of that.
void EndTrimmed(std::uint8_t* pStart, std::uint8_t* pEnd) {
    *pEnd = 0;
    while (pEnd > pStart && IsBlankOrLineEnd(pEnd[-1]))
        *--pEnd = 0;
}

// Decimal digits up to the first other byte; saturates.
std::uint32_t ReadDecimal(const std::uint8_t* pAt, const std::uint8_t* pEnd) {
    constexpr std::uint64_t limit = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t value = 0;
    for (; pAt < pEnd && *pAt >= '0' && *pAt <= '9'; ++pAt) {
        value = value * 10 + (*pAt - std::uint64_t{'0'});
        if (value > limit) value = limit;
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace

std::uint32_t ZephHttpHeaderParser::Parse(const std::uint8_t* pData, std::uint32_t nLength) {
    // The heads of one peer are much alike: the block of the last one mostly serves for the next.
    std::unique_ptr<std::uint8_t[]> copy = std::move(m_Copy);
    Reset();
    const std::uint64_t nNeed = std::uint64_t{nLength} + 1;
    if (!copy || nNeed > m_CopySize || m_CopySize > LargestReusedCopy) {
        copy.reset();
        copy.reset(ZephIOBuffer::Allocate(nNeed));
        if (!copy) return m_Error = eRC_OutOfMemory;
        m_CopySize = nNeed;
    }
    m_Copy = std::move(copy);
    if (nLength > 0) std::memcpy(m_Copy.get(), pData, nLength);
    m_Copy[nLength] = 0;
    m_Begin = m_Cursor = m_Copy.get();
    m_End = m_Begin + nLength;

    if (ParseHead()) return eRC_Success;
    Reset();
    return m_Error;
}

void ZephHttpHeaderParser::Reset() {
    m_Headers.clear();
    if (m_Headers.capacity() > MostReusedHeaders) m_Headers.shrink_to_fit();
    m_Copy.reset();
    m_Begin = m_End = m_Cursor = nullptr;
    m_Method = m_Url = m_Version = nullptr;
    m_StatusCode = 0;
}

const char* ZephHttpHeaderParser::GetHeader(const char* pName) const {
    const std::uint64_t nStart = StartOf(pName, std::strlen(pName) + 1);
    for (const Header& header : m_Headers) {
        if (header.nNameStart == nStart && std::strcmp(TextAt(header.nName), pName) == 0)
            return TextAt(header.nValue);
    }
    return nullptr;
}

void ZephHttpHeaderParser::ForEachHeader(ZephHeaderCallback callback) const {
    for (const Header& header : m_Headers)
        callback(TextAt(header.nName), TextAt(header.nValue));
}

void ZephHttpHeaderParser::CopyHeaders(ZephHttpHeaderCopy& to) const {
    to.m_Bytes.assign(m_Begin, m_Cursor);
    to.m_Headers = m_Headers;
}

// The first bytes of a name, up to its end, as a number that is ordered as they are. `nReadable`: bytes that
// may be read from there, the NUL behind the name among them.
std::uint64_t ZephHttpHeaderParser::StartOf(const char* pName, std::size_t nReadable) {
    std::uint64_t nStart = 0;
    if (nReadable >= sizeof nStart && std::endian::native == std::endian::little) {
        constexpr std::uint64_t nOnes = 0x0101010101010101, nHighBits = 0x8080808080808080;
        std::memcpy(&nStart, pName, sizeof nStart);
        // The lowest of the bits that are left marks the first NUL; what lies below it is the name.
        const std::uint64_t nNuls = (nStart - nOnes) & ~nStart & nHighBits;
        return __builtin_bswap64(nStart & ((nNuls & (0 - nNuls)) - 1));
    }
    for (std::size_t i = 0, nShift = 56; i < sizeof nStart && pName[i] != 0; ++i, nShift -= 8)
        nStart |= std::uint64_t{static_cast<unsigned char>(pName[i])} << nShift;
    return nStart;
}

// As `strcmp` of two names that begin alike.
int ZephHttpHeaderParser::CompareRest(const Header& left, const Header& right) const {
    constexpr std::uint32_t nCompared = sizeof left.nNameStart;
    if ((left.nNameStart & 0xFF) == 0) return 0;  // both end within these bytes
    return std::strcmp(TextAt(left.nName + nCompared), TextAt(right.nName + nCompared));
}

bool ZephHttpHeaderParser::ParseHead() {
    if (!ParseStartLine() || !ParseHeaderLines()) return false;
    SortHeaders();
    return true;
}

// Puts the headers in the order of their names. Of equal names the first stays, which lies lowest in the
// copy.
void ZephHttpHeaderParser::SortHeaders() {
    if (m_Headers.size() > FewHeaders) {
        std::sort(m_Headers.begin(), m_Headers.end(), [this](const Header& left, const Header& right) {
            return left.nNameStart != right.nNameStart ? left.nNameStart < right.nNameStart
                                                       : IsBehind(right, left);
        });
    } else {
        Header* const pFirst = m_Headers.data();
        Header* const pEnd = pFirst + m_Headers.size();
        for (Header* pNext = pFirst; pNext != pEnd; ++pNext) {
            const Header header = *pNext;
            Header* pAt = pNext;
            for (; pAt != pFirst && pAt[-1].nNameStart >= header.nNameStart; --pAt) {
                if (pAt[-1].nNameStart == header.nNameStart && !IsBehind(pAt[-1], header)) break;
                *pAt = pAt[-1];
            }
            *pAt = header;
        }
    }
    const auto last =
        std::unique(m_Headers.begin(), m_Headers.end(), [this](const Header& left, const Header& right) {
            return left.nNameStart == right.nNameStart && CompareRest(left, right) == 0;
        });
    m_Headers.erase(last, m_Headers.end());
}

// Of two names that begin alike: whether the first comes behind the second.
bool ZephHttpHeaderParser::IsBehind(const Header& left, const Header& right) const {
    const int nOrder = CompareRest(left, right);
    return nOrder != 0 ? nOrder > 0 : left.nName > right.nName;
}

bool ZephHttpHeaderParser::ParseStartLine() {
    // Line ends that a peer left behind an earlier body are no part of the head.
    while (m_Cursor < m_End && IsBlankOrLineEnd(*m_Cursor))
        ++m_Cursor;
    return m_Mode == ModeRequest ? ParseRequestLine() : ParseStatusLine();
}

bool ZephHttpHeaderParser::ParseRequestLine() {
    if (m_Cursor == m_End) return Fail();
    m_Method = Text(m_Cursor);
    if (!SkipToTokenEnd() || !EndToken()) return false;

    if (!SkipBlanks()) return false;
    m_Url = Text(m_Cursor);
    ReduceAbsoluteUrl();
    if (!SkipToTokenEnd() || !EndToken()) return false;

    m_Version = Text(m_Cursor);
    if (!SkipToTokenEnd() || !SkipBlanks()) return false;
    if (!IsLineEnd(m_Cursor, m_End)) return Fail();
    *m_Cursor = 0;
    m_Cursor += LineEndLength;
    return true;
}

// "http://host/path" becomes "/path". Only `m_Url` moves: the end of the token is still looked for from its
// beginning.
void ZephHttpHeaderParser::ReduceAbsoluteUrl() {
    constexpr std::size_t schemeLength = 7;
    const char* pUrl = Text(m_Cursor);
    const bool bAbsolute = std::strncmp(pUrl, "http://", schemeLength) == 0 ||
                           std::strncmp(pUrl, "https://", schemeLength + 1) == 0;
    if (!bAbsolute) return;
    const std::uint8_t* pAt = m_Cursor + schemeLength;
    if (*pAt == '/') ++pAt;
    if (pAt < m_End && IsTokenEnd(*pAt)) {
        m_Url = Text(pAt - 1);
        return;
    }
    while (pAt < m_End && !IsTokenEnd(*pAt) && *pAt != '/')
        ++pAt;
    m_Url = Text(pAt);
}

bool ZephHttpHeaderParser::ParseStatusLine() {
    // No NUL ends the version: whoever compares it with a literal finds a longer text. The keep-alive
    // decision of the client rests on that.
    m_Version = Text(m_Cursor);
    if (!SkipToTokenEnd() || !SkipBlanks() || !SkipBlanks()) return false;
    m_StatusCode = ReadDecimal(m_Cursor, m_End);

    // The reason phrase means nothing. A status line that ends the data leaves the cursor on its line end,
    // which then counts as the empty line.
    if (Remaining() <= LineEndLength) return true;
    std::uint8_t* const pLast = m_End - LineEndLength;
    for (;; ++m_Cursor) {
        m_Cursor = static_cast<std::uint8_t*>(
            std::memchr(m_Cursor, '\r', static_cast<std::size_t>(pLast - m_Cursor)));
        if (!m_Cursor) m_Cursor = pLast;
        if (m_Cursor == pLast) return true;
        if (m_Cursor[1] == '\n') break;
    }
    m_Cursor += LineEndLength;
    return true;
}

// The lines up to the empty one, and that one.
bool ZephHttpHeaderParser::ParseHeaderLines() {
    // To the compiler a byte that is written could be any member's.
    std::uint8_t* const pBegin = m_Begin;
    const std::uint8_t* const pEnd = m_End;
    std::uint8_t* pName = m_Cursor;
    for (;;) {
        while (IsBlank(*pName))  // the NUL at the end stops it
            ++pName;
        if (pName == pEnd) return Fail();
        if (IsLineEnd(pName, pEnd)) break;

        std::uint8_t* const pLineEnd = FindEndOfLines(pName, pEnd);
        if (!pLineEnd) return Fail();
        auto* const pColon =
            static_cast<std::uint8_t*>(std::memchr(pName, ':', static_cast<std::size_t>(pLineEnd - pName)));
        if (!pColon) return Fail();
        EndTrimmed(pName, pColon);

        std::uint8_t* pValue = pColon + 1;
        while (IsBlank(*pValue))  // a line end stops it
            ++pValue;
        // A folded value keeps the line end and the blank of its fold; only what trails the value is cut.
        EndTrimmed(pValue, pLineEnd);
        m_Headers.push_back({StartOf(Text(pName), static_cast<std::size_t>(pEnd - pName)),
                             static_cast<std::uint32_t>(pName - pBegin),
                             static_cast<std::uint32_t>(pValue - pBegin)});
        pName = pLineEnd + LineEndLength;
    }
    m_Cursor = pName + LineEndLength;
    return true;
}

// The line end behind a line and its continuation lines; null if the data ends first.
std::uint8_t* ZephHttpHeaderParser::FindEndOfLines(std::uint8_t* pAt, const std::uint8_t* pEnd) {
    for (;; ++pAt) {
        pAt = static_cast<std::uint8_t*>(std::memchr(pAt, '\r', static_cast<std::size_t>(pEnd - pAt)));
        if (!pAt) return nullptr;
        const bool bContinued = pEnd - pAt >= 3 && IsBlank(pAt[2]);
        if (IsLineEnd(pAt, pEnd) && !bContinued) return pAt;
    }
}

std::uint32_t ZephHttpHeaderParser::FailureCode() const {
    return m_Mode == ModeRequest ? eRC_HTTP_BadRequestHeader : eRC_HTTP_BadResponseHeader;
}

bool ZephHttpHeaderParser::Fail() {
    m_Error = FailureCode();
    return false;
}

bool ZephHttpHeaderParser::SkipToTokenEnd() {
    while (m_Cursor < m_End && !IsTokenEnd(*m_Cursor))
        ++m_Cursor;
    return m_Cursor < m_End || Fail();
}

bool ZephHttpHeaderParser::SkipBlanks() {
    while (m_Cursor < m_End && IsBlank(*m_Cursor))
        ++m_Cursor;
    return m_Cursor < m_End || Fail();
}

// Ends a token of the request line; more must follow.
bool ZephHttpHeaderParser::EndToken() {
    *m_Cursor++ = 0;
    return m_Cursor < m_End || Fail();
}

}  // namespace OmbryZephCore
