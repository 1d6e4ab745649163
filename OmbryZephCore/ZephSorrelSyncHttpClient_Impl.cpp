#include "OmbryZephCore/ZephSorrelSyncHttpClient_Impl.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephSorrelTrivialSyncConnectionPool.h"

#include <utility>

namespace OmbryZephCore {
namespace {

constexpr const char* DoRequestName = "OmbryZephCore::ZephSorrelSyncHttpClient_Impl::DoRequest";

}  // namespace

// Guards one request and its connection. On every way out an exchange that did not end well is cut off while
// the client still lives, since the stack holds pointers to it; then the settings are reset and the
// connection goes back.
class ZephSorrelSyncHttpClient_Impl::RequestScope {
public:
    explicit RequestScope(ZephSorrelSyncHttpClient_Impl& client) : m_Client(client) {}
    ~RequestScope() {
        ZephSorrelSyncConnectionIf* const pConnection = std::exchange(m_Client.m_Connection, nullptr);
        if (pConnection && !m_EndedWell) pConnection->Disconnect();
        m_Client.m_CloseAfterRequest = false;
        m_Client.m_TimeoutSeconds = DefaultTimeoutSeconds;
        m_Client.m_Token = Ombry::Cancellation::Token();
        m_Client.m_Reader = nullptr;
        m_Client.m_Writer = nullptr;
        m_Client.m_RequestHeaders.Clear();
        m_Client.m_CallerThrew = nullptr;  // what left in its place was another exception
        if (pConnection) m_Client.m_Pool->ReleaseConnection(pConnection);
    }
    RequestScope(const RequestScope&) = delete;
    RequestScope& operator=(const RequestScope&) = delete;

    void EndedWell() { m_EndedWell = true; }

private:
    ZephSorrelSyncHttpClient_Impl& m_Client;
    bool m_EndedWell = false;
};

ZephSorrelSyncHttpClient_Impl::ZephSorrelSyncHttpClient_Impl(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
    std::shared_ptr<const ZephSorrelConnectionParameters> params, ZephSorrelSyncConnectionPoolIf* pPool)
    : m_Logger(std::move(logger)), m_Parameters(std::move(params)), m_Pool(pPool) {
    if (m_Pool) return;
    m_OwnedPool = std::make_unique<ZephSorrelTrivialSyncConnectionPool>(m_Logger, bVerbose, *m_Parameters);
    m_Pool = m_OwnedPool.get();
}

void ZephSorrelSyncHttpClient_Impl::SetBasePath(const std::string& path) {
    m_BasePath = path;
    if (m_BasePath == "/") m_BasePath.clear();
    if (m_BasePath.empty()) return;
    if (m_BasePath.front() != '/') m_BasePath.insert(0, 1, '/');
    if (m_BasePath.back() == '/') m_BasePath.pop_back();
}

void ZephSorrelSyncHttpClient_Impl::MakeUrl(const std::string& path) {
    m_Url = m_BasePath;
    if (!path.empty() && path.front() != '/') m_Url += '/';
    m_Url += path;
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::DoRequest(const std::string& method, const std::string& path) {
    MakeUrl(path);
    RequestScope scope(*this);
    m_Connection = m_Pool->GetConnection(*m_Parameters);
    std::uint32_t nResult = m_Connection->EnsureConnected();
    bool bFirstTry = true;
    bool bChunked = false;
    std::uint32_t nLength = 0;
    while (nResult == eRC_Success) {
        m_RequestHeaders.ForEach([this](const char* pName, const char* pValue) {
            m_Connection->GetHttpConnection().AddHeader(pName, pValue);
        });
        m_IOResult = 0;
        m_RequestResult = 0;
        m_HttpStatus = 0;
        m_ResponseHeaders.Clear();
        nResult = PrepareBody(bChunked, nLength);
        if (nResult != eRC_Success) break;
        nResult = Exchange(method, bChunked, nLength);
        if (m_CallerThrew) std::rethrow_exception(std::exchange(m_CallerThrew, nullptr));
        if (nResult == eRC_Success || nResult == eRC_HTTP_StatusFailure) {
            // A response may end before its request does; the stack then still holds pointers to us.
            if (m_RequestSent) scope.EndedWell();
            break;
        }
        // A connection that the server closed while it was idle shows only now. The body may have been
        // processed, POST included, and is sent again all the same, but only this once, and never after a
        // time-out.
        if (!bFirstTry || nResult != eRC_IO_ConnectionFailed || m_IOResult == eRC_TimedOut) break;
        bFirstTry = false;
        nResult = m_Connection->Reconnect();
    }
    return nResult;
}

// Sizes the buffer for pieces of the body; a body of unknown length is sent chunked.
std::uint32_t ZephSorrelSyncHttpClient_Impl::PrepareBody(bool& bChunked, std::uint32_t& nLength) {
    // Without a reader nobody asks for the buffer: a client that only gets things never takes memory for it.
    if (!m_Reader && m_BodyBuffer.GetLength() == 0) return eRC_Success;
    if (!m_Reader || !m_Reader->HasData()) return m_BodyBuffer.SetLength(0);
    nLength = m_Reader->GetLength();
    bChunked = nLength == 0;
    return m_BodyBuffer.SetLength(nLength != 0 && nLength < LargestBodyPiece ? nLength : LargestBodyPiece);
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::Exchange(const std::string& method, bool bChunked,
                                                      std::uint32_t nLength) {
    Ombry::LibraryLogger::LogCall(m_Logger, DoRequestName, 1, "sending ", method, " to ", m_Url);
    m_RequestSent = false;
    m_ResponseEnded = false;
    const std::uint32_t nResult = m_Connection->GetHttpConnection().SendRequest(
        method.c_str(), m_Url.c_str(), m_CloseAfterRequest, this, this, this, bChunked, nLength);
    if (nResult != eRC_Success) return nResult;
    m_IOResult = m_Connection->GetSyncIOController().DoPendingIO(m_TimeoutSeconds, m_Token);
    return JudgeExchange();
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::JudgeExchange() {
    if (m_IOResult != eRC_Success) {
        Ombry::LibraryLogger::LogCall(m_Logger, DoRequestName, 1, "Communications failed with IO error code ",
                                      m_IOResult);
        return eRC_IO_ConnectionFailed;
    }
    // Nothing is pending and nothing failed, yet no response came to its end: the stack has stalled.
    if (m_RequestResult == eRC_Success && !m_ResponseEnded) m_RequestResult = eRC_IO_ConnectionFailed;
    if (m_RequestResult != eRC_Success) {
        Ombry::LibraryLogger::LogCall(m_Logger, DoRequestName, 1, "Got request handling error code ",
                                      m_RequestResult);
        return m_RequestResult;
    }
    Ombry::LibraryLogger::LogCall(m_Logger, DoRequestName, 1, "Got HTTP response code ", m_HttpStatus);
    return m_HttpStatus >= 200 && m_HttpStatus <= 299 ? eRC_Success : eRC_HTTP_StatusFailure;
}

// Calls the reader or the writer, which are not ours and may throw: no exception may cross the stages, so it
// is kept and ends the exchange.
template <class Call>
std::uint32_t ZephSorrelSyncHttpClient_Impl::CallOut(Call call) {
    try {
        call();
        return eRC_Success;
    } catch (...) {
        m_CallerThrew = std::current_exception();
        return eRC_Fail;
    }
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::OnResponseStart(std::uint32_t nStatus, std::uint32_t nLength) {
    ExtractResponseHeaders(nStatus);
    if (m_Writer) {
        const std::uint32_t nResult = CallOut([&] {
            m_Writer->Begin();
            m_Writer->Expect(nLength);
        });
        if (nResult != eRC_Success) return nResult;
    }
    m_Connection->GetHttpConnection().ContinueReceive();
    return eRC_Success;
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::OnChunkAnnounced(std::uint32_t nBytes) {
    if (!m_Writer) return eRC_Success;
    return CallOut([&] { m_Writer->Expect(nBytes); });
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) {
    if (m_Writer) {
        if (const std::uint32_t nResult = CallOut([&] { m_Writer->Write(pData, nBytes); })) return nResult;
    }
    m_Connection->GetHttpConnection().ContinueReceive();
    return eRC_Success;
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::OnResponseEnd() {
    m_ResponseEnded = true;
    if (!m_Writer) return eRC_Success;
    return CallOut([this] { m_Writer->End(); });
}

std::uint32_t ZephSorrelSyncHttpClient_Impl::OnCompleteResponse(std::uint32_t nStatus,
                                                                const std::uint8_t* pData,
                                                                std::uint32_t nBytes) {
    ExtractResponseHeaders(nStatus);
    m_ResponseEnded = true;
    if (!m_Writer) return eRC_Success;
    return CallOut([&] {
        m_Writer->Begin();
        m_Writer->Write(pData, nBytes);
        m_Writer->End();
    });
}

void ZephSorrelSyncHttpClient_Impl::OnResponseFailed() {
    m_RequestResult = eRC_IO_ConnectionFailed;
}

void ZephSorrelSyncHttpClient_Impl::OnRequestFailed() {
    m_RequestResult = eRC_IO_ConnectionFailed;
}

void ZephSorrelSyncHttpClient_Impl::OnReadyForBody() {
    if (m_RequestResult != eRC_Success) return;
    ZephHttpClientConnectionIf& http = m_Connection->GetHttpConnection();
    std::uint32_t nBytes = m_BodyBuffer.GetLength();
    bool bMore = false;
    std::uint32_t nResult = eRC_Success;
    if (m_Reader) nResult = CallOut([&] { bMore = m_Reader->Read(m_BodyBuffer.GetData(), &nBytes); });
    if (nResult == eRC_Success)
        nResult = bMore ? http.WriteBody(nBytes, m_BodyBuffer.GetData()) : http.EndBody();
    if (nResult == eRC_Success) return;
    http.Abandon();             // no answer will come to half a request
    m_RequestResult = nResult;  // and not the failure that it reports
}

void ZephSorrelSyncHttpClient_Impl::ExtractResponseHeaders(std::uint32_t nStatus) {
    m_HttpStatus = nStatus;
    m_Connection->GetHttpConnection().CopyResponseHeaders(m_ResponseHeaders);
}

void ZephSorrelSyncHttpClient_Impl::ForEachResponseHeader(
    const std::function<void(const std::string& name, const std::string& value)>& callback) const {
    m_ResponseHeaders.ForEach([&](const char* pName, const char* pValue) { callback(pName, pValue); });
}

}  // namespace OmbryZephCore
