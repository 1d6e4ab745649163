#pragma once

#include <cstdint>
#include <functional>

namespace OmbryZephCore {

class ZephHttpHeaderCopy;

/// Receives one response. A result code that is not zero ends the connection. Data pointers are valid only
/// during the call. To go on receiving, a handler calls
/// `ZephHttpClientConnectionIf::ContinueReceive` before it returns, or later.
class ZephHttpResponseHandlerIf {
public:
    virtual ~ZephHttpResponseHandlerIf() = default;
    virtual std::uint32_t OnResponseStart(std::uint32_t nStatus, std::uint32_t nLength) = 0;
    virtual std::uint32_t OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) = 0;
    virtual std::uint32_t OnResponseEnd() = 0;
    /// A response whose body arrived with its head, in one call instead of the three above.
    virtual std::uint32_t OnCompleteResponse(std::uint32_t nStatus, const std::uint8_t* pData,
                                             std::uint32_t nBytes) = 0;
    virtual void OnResponseFailed() = 0;
    /// A chunk of this length is to come, and no room was made for it yet; every chunk is held whole. Comes
    /// for answers with a status below 200 too, of which nothing else is told. Receiving goes on by itself.
    virtual std::uint32_t OnChunkAnnounced(std::uint32_t /*nBytes*/) { return 0; }
};

class ZephHttpRequestNotifierIf {
public:
    virtual ~ZephHttpRequestNotifierIf() = default;
    virtual void OnRequestSent() = 0;
    virtual void OnRequestFailed() = 0;
};

class ZephHttpNotifierIf {
public:
    virtual ~ZephHttpNotifierIf() = default;
    virtual void OnReadyForBody() = 0;
};

/// Visits headers by name and value; the texts are valid during the call.
using ZephHeaderCallback = std::function<void(const char* pName, const char* pValue)>;

/// Speaks HTTP/1.1 as a client. Results are those of `ResultCode`. Handlers and notifiers are not owned and
/// must live until their request has ended. Seam inside, as they are: a program has
/// `ZephSorrelSyncHttpClient`.
class ZephHttpClientConnectionIf {
public:
    virtual ~ZephHttpClientConnectionIf() = default;
    virtual void ContinueReceive() = 0;
    virtual std::uint32_t SendRequest(const char* pMethod, const char* pUrl, bool bClose,
                                      ZephHttpResponseHandlerIf* pResponseHandler,
                                      ZephHttpRequestNotifierIf* pRequestNotifier,
                                      ZephHttpNotifierIf* pBodyNotifier, bool bChunked,
                                      std::uint32_t nLength) = 0;
    virtual std::uint32_t WriteBody(std::uint32_t nBytes, const std::uint8_t* pData) = 0;
    virtual std::uint32_t EndBody() = 0;
    virtual std::uint32_t SendRequestWithBody(const char* pMethod, const char* pUrl, bool bClose,
                                              ZephHttpResponseHandlerIf* pResponseHandler,
                                              ZephHttpRequestNotifierIf* pRequestNotifier,
                                              std::uint32_t nLength, const std::uint8_t* pData) = 0;
    virtual std::uint32_t AddHeader(const char* pName, const char* pValue) = 0;
    virtual const char* GetResponseHeader(const char* pName) = 0;
    virtual void ForEachResponseHeader(ZephHeaderCallback callback) = 0;
    virtual bool IsOpen() = 0;
    virtual bool IsCloseRequested() = 0;
    /// What `ForEachResponseHeader` would visit.
    virtual void CopyResponseHeaders(ZephHttpHeaderCopy& to) = 0;
    /// Gives the connection up, as where its peer failed: every request on it is told so, and its stack goes.
    virtual void Abandon() = 0;
};

}  // namespace OmbryZephCore
