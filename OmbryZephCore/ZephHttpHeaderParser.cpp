#include "OmbryZephCore/ZephHttpHeaderParser.h"

#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace OmbryZephCore {
namespace {

constexpr const char* LineEnd = "\r\n";
constexpr std::size_t LineEndLength = 2;

// The character classes are those of ASCII: a head means the same under every locale.
bool IsBlank(std::uint8_t byte) {
    return byte == ' ' || byte == '\t';
}

bool IsBlankOrLineEnd(std::uint8_t byte) {
    return IsBlank(byte) || byte == '\r' || byte == '\n';
}

/// TAB is not a separator of the start line.
bool IsTokenEnd(std::uint8_t byte) {
    return byte == ' ' || byte == '\r' || byte == '\n';
}

std::uint8_t Lower(std::uint8_t byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<std::uint8_t>(byte + ('a' - 'A')) : byte;
}

/// As `strcmp`, which mostly is decided by the first bytes.
int Compare(const char* pLeft, const char* pRight) {
    const int nFirst = static_cast<unsigned char>(*pLeft) - static_cast<unsigned char>(*pRight);
    return nFirst != 0 ? nFirst : std::strcmp(pLeft, pRight);
}

const char* Text(const std::uint8_t* pAt) {
    return reinterpret_cast<const char*>(pAt);
}

/// Ends the text that begins at `pStart` at `pEnd`, and cuts the blanks and line ends in front of that.
void EndTrimmed(std::uint8_t* pStart, std::uint8_t* pEnd) {
    *pEnd = 0;
    while (pEnd > pStart && IsBlankOrLineEnd(pEnd[-1]))
        *--pEnd = 0;
}

/// Decimal digits up to the first other byte; saturates.
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
    m_Headers.clear();  // before the copy that it points into
    m_Copy.reset();
    m_Begin = m_End = m_Cursor = nullptr;
    m_Method = m_Url = m_Version = nullptr;
    m_StatusCode = 0;
}

const char* ZephHttpHeaderParser::GetHeader(const char* pName) const {
    const auto found = std::lower_bound(
        m_Headers.begin(), m_Headers.end(), pName,
        [](const Header& header, const char* pWanted) { return Compare(header.pName, pWanted) < 0; });
    const bool bFound = found != m_Headers.end() && Compare(found->pName, pName) == 0;
    return bFound ? found->pValue : nullptr;
}

void ZephHttpHeaderParser::ForEachHeader(ZephHeaderCallback callback) const {
    for (const auto& [pName, pValue] : m_Headers)
        callback(pName, pValue);
}

bool ZephHttpHeaderParser::ParseHead() {
    if (!ParseStartLine()) return false;
    for (bool bEnd = false; !bEnd;) {
        if (!ParseHeaderLine(bEnd)) return false;
    }
    SortHeaders();
    return true;
}

/// Puts the headers in the order of their names. Of equal names the first stays, which lies lowest in the
/// copy.
void ZephHttpHeaderParser::SortHeaders() {
    std::sort(m_Headers.begin(), m_Headers.end(), [](const Header& left, const Header& right) {
        const int nOrder = Compare(left.pName, right.pName);
        return nOrder != 0 ? nOrder < 0 : left.pName < right.pName;
    });
    const auto last = std::unique(
        m_Headers.begin(), m_Headers.end(),
        [](const Header& left, const Header& right) { return Compare(left.pName, right.pName) == 0; });
    m_Headers.erase(last, m_Headers.end());
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
    if (!Match(LineEnd)) return Fail();
    *m_Cursor = 0;
    m_Cursor += LineEndLength;
    return true;
}

/// "http://host/path" becomes "/path". Only `m_Url` moves: the end of the token is still looked for from its
/// beginning.
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
    while (Remaining() > LineEndLength && !IsLineEnd(m_Cursor))
        ++m_Cursor;
    if (Remaining() > LineEndLength) m_Cursor += LineEndLength;
    return true;
}

bool ZephHttpHeaderParser::ParseHeaderLine(bool& bEnd) {
    bEnd = false;
    if (!SkipBlanks()) return false;
    if (Match(LineEnd)) {
        bEnd = true;
        m_Cursor += LineEndLength;
        return true;
    }

    std::uint8_t* const pName = m_Cursor;
    if (!FindColon(pName)) return Fail();
    EndTrimmed(pName, m_Cursor);
    ++m_Cursor;
    if (m_Cursor == m_End) return Fail();
    if (!SkipBlanks()) return false;

    std::uint8_t* const pValue = m_Cursor;
    if (!FindValueEnd()) return Fail();
    // A folded value keeps the line end and the blank of its fold; only what trails the value is cut.
    EndTrimmed(pValue, m_Cursor);
    m_Headers.push_back({Text(pName), Text(pValue)});
    m_Cursor += LineEndLength;
    return true;
}

/// Moves to the ":" of the line that begins at `pLineStart`, over its continuation lines; false if it has
/// none.
bool ZephHttpHeaderParser::FindColon(std::uint8_t* pLineStart) {
    m_Cursor = pLineStart;
    auto* const pColon = static_cast<std::uint8_t*>(std::memchr(pLineStart, ':', Remaining()));
    if (!pColon) return false;
    while (auto* const pReturn = static_cast<std::uint8_t*>(
               std::memchr(m_Cursor, '\r', static_cast<std::size_t>(pColon - m_Cursor)))) {
        if (IsLineEnd(pReturn) && !IsContinued(pReturn)) return false;
        m_Cursor = pReturn + 1;
    }
    m_Cursor = pColon;
    return true;
}

/// Moves to the line end behind a value and its continuation lines; false if the data ends first.
bool ZephHttpHeaderParser::FindValueEnd() {
    while (Remaining() >= LineEndLength) {
        auto* const pReturn = static_cast<std::uint8_t*>(std::memchr(m_Cursor, '\r', Remaining()));
        if (!pReturn) return false;
        m_Cursor = pReturn;
        if (IsLineEnd(m_Cursor) && !IsContinued(m_Cursor)) return true;
        ++m_Cursor;
    }
    return false;
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

/// Ends a token of the request line; more must follow.
bool ZephHttpHeaderParser::EndToken() {
    *m_Cursor++ = 0;
    return m_Cursor < m_End || Fail();
}

/// Whether the given text stands at the cursor, in any case of its letters. Forgets an earlier failure.
bool ZephHttpHeaderParser::Match(const char* pText) {
    m_Error = eRC_Success;
    const std::size_t length = std::strlen(pText);
    if (Remaining() < length) return false;
    for (std::size_t i = 0; i < length; ++i) {
        if (Lower(m_Cursor[i]) != Lower(static_cast<std::uint8_t>(pText[i]))) return false;
    }
    return true;
}

bool ZephHttpHeaderParser::IsLineEnd(const std::uint8_t* pAt) const {
    return m_End - pAt >= 2 && pAt[0] == '\r' && pAt[1] == '\n';
}

bool ZephHttpHeaderParser::IsContinued(const std::uint8_t* pLineEnd) const {
    return m_End - pLineEnd >= 3 && IsBlank(pLineEnd[2]);
}

}  // namespace OmbryZephCore
