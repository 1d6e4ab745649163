#pragma once

#include "OmbryZephCore/ZephHttpClientConnectionIf.h"
#include "OmbryZephCore/ZephHttpHeaderCopy.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace OmbryZephCore {

/// A parsed HTTP head. Texts are NUL-terminated, point into the parser's copy of the head, and are valid
/// until its next `Parse`, its `Reset` or its end; null where the head has no such text.
class ZephHttpParsedHeaderIf {
public:
    virtual ~ZephHttpParsedHeaderIf() = default;
    /// Request heads only.
    virtual const char* GetMethod() const = 0;
    /// Request heads only; an absolute URL is reduced to its path.
    virtual const char* GetUrl() const = 0;
    /// Response heads only, 0 otherwise.
    virtual std::uint32_t GetStatusCode() const = 0;
    /// The version of a request. Of a response, the text that BEGINS with the version and runs on through the
    /// rest of the head.
    virtual const char* GetVersion() const = 0;
    /// The value, or null. Names are compared exactly, case included.
    virtual const char* GetHeader(const char* pName) const = 0;
    /// Bytes of the head, its empty line included.
    virtual std::uint32_t GetHeaderSize() const = 0;
    /// Visits all headers in the byte order of their names. An empty callback throws `std::bad_function_call`
    /// at the first header.
    virtual void ForEachHeader(ZephHeaderCallback callback) const = 0;
};

/// Parses one complete HTTP head (RFC 9112, sections 2 to 5, looser and stricter in places) that the caller
/// has already collected. It works in place on one private copy: no text of a header is allocated. Not
/// thread-safe.
class ZephHttpHeaderParser : public ZephHttpParsedHeaderIf {
public:
    static constexpr std::uint32_t ModeRequest = 0;
    static constexpr std::uint32_t ModeResponse = 1;

    explicit ZephHttpHeaderParser(std::uint32_t nMode) : m_Mode(nMode) {}
    ZephHttpHeaderParser(const ZephHttpHeaderParser&) = delete;
    ZephHttpHeaderParser& operator=(const ZephHttpHeaderParser&) = delete;

    /// 0, `eRC_OutOfMemory`, or `eRC_HTTP_BadRequestHeader` / `eRC_HTTP_BadResponseHeader` by mode. Forgets
    /// the head before; after a failure there is none. Bytes behind the head are ignored.
    std::uint32_t Parse(const std::uint8_t* pData, std::uint32_t nLength);
    void Reset();

    const char* GetMethod() const override { return m_Method; }
    const char* GetUrl() const override { return m_Url; }
    std::uint32_t GetStatusCode() const override { return m_StatusCode; }
    const char* GetVersion() const override { return m_Version; }
    const char* GetHeader(const char* pName) const override;
    std::uint32_t GetHeaderSize() const override { return static_cast<std::uint32_t>(m_Cursor - m_Begin); }
    void ForEachHeader(ZephHeaderCallback callback) const override;
    /// Replaces what `to` held.
    void CopyHeaders(ZephHttpHeaderCopy& to) const;

private:
    /// A block above this size goes with its head.
    static constexpr std::uint64_t LargestReusedCopy = 4096;
    /// And so does the list of more headers than this.
    static constexpr std::size_t MostReusedHeaders = 256;
    /// So many are put in their places one by one, which is quick for few and would be slow for thousands.
    static constexpr std::size_t FewHeaders = 32;

    using Header = ZephHttpHeaderCopy::Header;

    std::uint32_t FailureCode() const;
    bool Fail();
    bool ParseHead();
    bool ParseStartLine();
    bool ParseRequestLine();
    bool ParseStatusLine();
    void ReduceAbsoluteUrl();
    bool ParseHeaderLines();
    static std::uint64_t StartOf(const char* pName, std::size_t nReadable);
    int CompareRest(const Header& left, const Header& right) const;
    bool IsBehind(const Header& left, const Header& right) const;
    static std::uint8_t* FindEndOfLines(std::uint8_t* pAt, const std::uint8_t* pEnd);
    void SortHeaders();
    bool SkipToTokenEnd();
    bool SkipBlanks();
    bool EndToken();
    std::size_t Remaining() const { return static_cast<std::size_t>(m_End - m_Cursor); }
    const char* TextAt(std::uint32_t nOffset) const {
        return reinterpret_cast<const char*>(m_Begin) + nOffset;
    }

    std::uint32_t m_Mode;
    /// The head and one NUL behind it, so that the byte at `m_End` can always be read.
    std::unique_ptr<std::uint8_t[]> m_Copy;
    std::uint64_t m_CopySize = 0;  ///< bytes of that block
    std::uint8_t* m_Begin = nullptr;
    std::uint8_t* m_End = nullptr;
    std::uint8_t* m_Cursor = nullptr;
    const char* m_Method = nullptr;
    const char* m_Url = nullptr;
    std::uint32_t m_StatusCode = 0;
    const char* m_Version = nullptr;
    /// A map in one block, which heads of a kept-alive connection use again and again: after a success sorted
    /// by name, plain byte order, each name once.
    std::vector<Header> m_Headers;
    std::uint32_t m_Error = 0;
};

}  // namespace OmbryZephCore
