#include "OmbryZephCore/ZephHttpHeaderParser.h"

#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
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
    return IsBlank(byte) || byte == '\r' || byte == '\n';
}

/// TAB is not a separator of the start line.
bool IsTokenEnd(std::uint8_t byte) {
    return byte == ' ' || byte == '\r' || byte == '\n';
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

void ZephHttpHeaderParser::CopyHeaders(ZephHttpHeaderCopy& to) const {
    to.m_Bytes.assign(m_Begin, m_Cursor);
    to.m_Headers.resize(m_Headers.size());
    for (std::size_t i = 0; i < m_Headers.size(); ++i) {
        to.m_Headers[i] = {static_cast<std::uint32_t>(m_Headers[i].pName - Text(m_Begin)),
                           static_cast<std::uint32_t>(m_Headers[i].pValue - Text(m_Begin))};
    }
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
    if (!MatchLineEnd()) return Fail();
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
    if (!SkipBlanks()) return false;
    if (MatchLineEnd()) {
        bEnd = true;
        m_Cursor += LineEndLength;
        return true;
    }

    std::uint8_t* const pName = m_Cursor;
    std::uint8_t* const pEnd = FindEndOfLines(pName);
    if (!pEnd) return Fail();
    auto* const pColon =
        static_cast<std::uint8_t*>(std::memchr(pName, ':', static_cast<std::size_t>(pEnd - pName)));
    if (!pColon) return Fail();
    EndTrimmed(pName, pColon);

    std::uint8_t* pValue = pColon + 1;
    while (IsBlank(*pValue))  // a line end stops it
        ++pValue;
    // A folded value keeps the line end and the blank of its fold; only what trails the value is cut.
    EndTrimmed(pValue, pEnd);
    m_Headers.push_back({Text(pName), Text(pValue)});
    m_Cursor = pEnd + LineEndLength;
    return true;
}

/// The line end behind a line and its continuation lines; null if the data ends first.
std::uint8_t* ZephHttpHeaderParser::FindEndOfLines(std::uint8_t* pAt) const {
    for (;; ++pAt) {
        pAt = static_cast<std::uint8_t*>(std::memchr(pAt, '\r', static_cast<std::size_t>(m_End - pAt)));
        if (!pAt || (IsLineEnd(pAt) && !IsContinued(pAt))) return pAt;
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

/// Ends a token of the request line; more must follow.
bool ZephHttpHeaderParser::EndToken() {
    *m_Cursor++ = 0;
    return m_Cursor < m_End || Fail();
}

/// Whether a line end stands at the cursor. Forgets an earlier failure.
bool ZephHttpHeaderParser::MatchLineEnd() {
    m_Error = eRC_Success;
    return IsLineEnd(m_Cursor);
}

bool ZephHttpHeaderParser::IsLineEnd(const std::uint8_t* pAt) const {
    return m_End - pAt >= 2 && pAt[0] == '\r' && pAt[1] == '\n';
}

bool ZephHttpHeaderParser::IsContinued(const std::uint8_t* pLineEnd) const {
    return m_End - pLineEnd >= 3 && IsBlank(pLineEnd[2]);
}

}  // namespace OmbryZephCore
