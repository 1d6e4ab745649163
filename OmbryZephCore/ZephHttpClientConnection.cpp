#include "OmbryZephCore/ZephHttpClientConnection.h"

#include "OmbryZephCore/ZephResultCodes.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>

namespace OmbryZephCore {

std::uint32_t ZephHttpClientConnection::Initialize(ZephIOObjectIf* pIO, ZephTerminatorIf* pTerminator,
                                                   const char* pHost, ZephUserTaskScheduleIf* pScheduler,
                                                   ZephSSLControlIf* pSSLControl) {
    if (!pIO || !pTerminator) return eRC_InvalidArgument;
    m_IO = pIO;
    m_Terminator = pTerminator;
    m_Host = pHost ? pHost : "";
    m_Scheduler = pScheduler;
    m_SSLControl = pSSLControl;
    const std::uint32_t nResult = pIO->RegisterIOCompletionHandler(this);
    if (nResult != eRC_Success) ForgetNeighbours();
    return nResult;
}

void ZephHttpClientConnection::Close() {
    if (m_IO) {
        m_IO->UnRegisterIOCompletionHandler();
        ForgetNeighbours();
    }
    Reset();
}

void ZephHttpClientConnection::ForgetNeighbours() {
    m_IO = nullptr;
    m_Terminator = nullptr;
    m_Host.clear();
    m_Scheduler = nullptr;
    m_SSLControl = nullptr;
}

void ZephHttpClientConnection::Reset() {
    EndExchanges(&ZephHttpRequestNotifierIf::OnRequestSent);
    ClearResponse();
    m_HaveHead = false;
    m_HeadLength = 0;
    m_Parser.Reset();
    m_CloseAfter = false;
    m_ReadFill = m_Consumed = m_Searched = 0;
    m_ReadPending = m_WritePending = false;
    m_WriteOffset = 0;
    m_RequestChunked = false;
    m_CallbackThread = {};
    m_ReadUntilClose = false;
    m_PendingHeaders.clear();
}

// Tells everyone who waits now, each forgotten before it is told; one who sends again from there is not told
// for it. Destructors come here, so nothing is allocated.
void ZephHttpClientConnection::EndExchanges(void (ZephHttpRequestNotifierIf::*pReport)()) {
    m_BodyNotifier = nullptr;
    std::size_t nHandlers = m_ResponseHandlers.size();
    for (std::size_t n = m_RequestNotifiers.size(); n > 0 && !m_RequestNotifiers.empty(); --n) {
        ZephHttpRequestNotifierIf* pNotifier = m_RequestNotifiers.front();
        m_RequestNotifiers.pop_front();
        if (pNotifier) (pNotifier->*pReport)();
    }
    for (; nHandlers > 0 && !m_ResponseHandlers.empty(); --nHandlers) {
        ZephHttpResponseHandlerIf* pHandler = m_ResponseHandlers.front();
        m_ResponseHandlers.pop_front();
        if (pHandler) pHandler->OnResponseFailed();
    }
}

ZephHttpClientConnection::Progress ZephHttpClientConnection::Fail() {
    if (!m_Terminator) return Progress::Failed;
    m_Terminator->Terminate();
    EndExchanges(&ZephHttpRequestNotifierIf::OnRequestFailed);
    return Progress::Failed;
}

void ZephHttpClientConnection::CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) {
    const bool bRead = nTaskType == TaskTypeRead;
    (bRead ? m_ReadPending : m_WritePending) = false;
    if (!bSuccess) {
        Fail();
    } else if (bRead) {
        CompleteRead(nBytes);
    } else {
        CompleteWrite(nBytes);
    }
}

void ZephHttpClientConnection::AbortTask(std::uint32_t nTaskType) {
    (nTaskType == TaskTypeRead ? m_ReadPending : m_WritePending) = false;
    Fail();
}

void ZephHttpClientConnection::DoTask() {
    if (m_BodyNotifier) m_BodyNotifier->OnReadyForBody();
}

void ZephHttpClientConnection::ReleaseIdleMemory() {
    if (m_ReadPending || m_WritePending || !m_ResponseHandlers.empty()) return;
    m_ReadFill = m_Consumed = 0;
    m_ReadBuffer.Release();
    m_WriteBuffer.Release();
}

// Sending

std::uint32_t ZephHttpClientConnection::AddHeader(const char* pName, const char* pValue) {
    // Whoever adds a header answers for its text: nothing is checked or escaped.
    m_PendingHeaders.append(pName).append(": ").append(pValue).append(LineEnd);
    return eRC_Success;
}

std::uint32_t ZephHttpClientConnection::SendRequest(const char* pMethod, const char* pUrl, bool bClose,
                                                    ZephHttpResponseHandlerIf* pResponseHandler,
                                                    ZephHttpRequestNotifierIf* pRequestNotifier,
                                                    ZephHttpNotifierIf* pBodyNotifier, bool bChunked,
                                                    std::uint32_t nLength) {
    if (!m_IO) return eRC_NotInitialized;
    if (m_WritePending) return eRC_IO_WriteAlreadyInProgress;
    m_CloseAfter = m_CloseAsked = bClose;
    m_RequestChunked = bChunked;
    const std::uint32_t nResult = WriteHead(pMethod, pUrl, nLength, {});
    if (nResult != eRC_Success) return nResult;
    m_BodyNotifier = pBodyNotifier;
    return StartRequest(pResponseHandler, pRequestNotifier);
}

std::uint32_t ZephHttpClientConnection::SendRequestWithBody(
    const char* pMethod, const char* pUrl, bool bClose, ZephHttpResponseHandlerIf* pResponseHandler,
    ZephHttpRequestNotifierIf* pRequestNotifier, std::uint32_t nLength, const std::uint8_t* pData) {
    if (!m_IO) return eRC_NotInitialized;
    if (m_WritePending) return eRC_IO_WriteAlreadyInProgress;
    m_CloseAfter = m_CloseAsked = bClose;
    m_RequestChunked = false;
    const std::uint32_t nResult = WriteHead(pMethod, pUrl, nLength, Bytes(pData, nLength));
    if (nResult != eRC_Success) return nResult;
    return StartRequest(pResponseHandler, pRequestNotifier);
}

// Fills the write buffer with the head and `body`. The lines of `AddHeader` belong to this request alone,
// sent or not: they may hold credentials.
std::uint32_t ZephHttpClientConnection::WriteHead(const char* pMethod, const char* pUrl,
                                                  std::uint32_t nLength, std::string_view body) {
    char digits[std::numeric_limits<std::uint32_t>::digits10 + 1];
    const char* const pDigitsEnd = std::to_chars(digits, digits + sizeof digits, nLength).ptr;
    std::string_view length(digits, static_cast<std::size_t>(pDigitsEnd - digits));
    const std::string_view version =
        m_CloseAsked ? " HTTP/1.1\r\nConnection: close\r\nHost: " : " HTTP/1.1\r\nHost: ";
    const std::string_view framing =
        m_RequestChunked ? "\r\nTransfer-Encoding: chunked" : "\r\nContent-Length: ";
    if (m_RequestChunked) length = {};
    const std::uint32_t nResult = SetWriteBuffer(
        {pMethod, " ", pUrl, version, m_Host, framing, length, LineEnd, m_PendingHeaders, LineEnd, body});
    m_PendingHeaders.clear();
    return nResult;
}

std::uint32_t ZephHttpClientConnection::SetWriteBuffer(std::initializer_list<std::string_view> parts) {
    std::uint64_t nLength = 0;
    for (const std::string_view part : parts)
        nLength += part.size();
    if (nLength > MaxLength) return eRC_OutOfMemory;
    const std::uint32_t nResult = m_WriteBuffer.SetLength(static_cast<std::uint32_t>(nLength));
    if (nResult != eRC_Success) return nResult;
    std::uint8_t* pAt = m_WriteBuffer.GetData();
    for (const std::string_view part : parts) {
        if (!part.empty()) std::memcpy(pAt, part.data(), part.size());
        pAt += part.size();
    }
    m_WriteOffset = 0;
    return eRC_Success;
}

std::uint32_t ZephHttpClientConnection::StartRequest(ZephHttpResponseHandlerIf* pResponseHandler,
                                                     ZephHttpRequestNotifierIf* pRequestNotifier) {
    m_ResponseHandlers.push_back(pResponseHandler);
    // The read comes first: it must be there when the answer is. A read that cannot start has failed the
    // connection, and with it this request.
    if (m_ResponseHandlers.size() == 1) {
        m_IO->ExpectSilenceUntilSent();
        if (Receive() == Progress::Failed) return eRC_IO_ConnectionFailed;
    }
    m_RequestNotifiers.push_back(pRequestNotifier);
    return StartWrite();
}

std::uint32_t ZephHttpClientConnection::StartWrite() {
    m_WritePending = true;
    const std::uint32_t nResult =
        m_IO->StartWrite(m_WriteBuffer.GetLength() - m_WriteOffset, m_WriteBuffer.GetData() + m_WriteOffset);
    if (nResult != eRC_Success) m_WritePending = false;
    return nResult;
}

std::uint32_t ZephHttpClientConnection::WriteBody(std::uint32_t nBytes, const std::uint8_t* pData) {
    if (!m_IO) return eRC_NotInitialized;
    // In chunked coding a piece of no bytes would be the end of the body without its bookkeeping, and a
    // transfer of no bytes never completes.
    if (nBytes == 0) return EndBody();
    if (m_WritePending) return eRC_IO_WriteAlreadyInProgress;
    const std::string_view data = Bytes(pData, nBytes);
    std::uint32_t nResult = eRC_Success;
    if (m_RequestChunked) {
        char size[24];
        std::snprintf(size, sizeof size, "%llX\r\n", static_cast<unsigned long long>(nBytes));
        nResult = SetWriteBuffer({size, data, LineEnd});
    } else {
        nResult = SetWriteBuffer({data});
    }
    return nResult != eRC_Success ? nResult : StartWrite();
}

std::uint32_t ZephHttpClientConnection::EndBody() {
    if (!m_IO) return eRC_NotInitialized;
    if (!m_RequestChunked) {
        m_BodyNotifier = nullptr;
        ReportRequestSent();
        return eRC_Success;
    }
    if (m_WritePending) return eRC_IO_WriteAlreadyInProgress;
    m_BodyNotifier = nullptr;
    const std::uint32_t nResult = SetWriteBuffer({"0\r\n\r\n"});
    return nResult != eRC_Success ? nResult : StartWrite();
}

void ZephHttpClientConnection::CompleteWrite(std::uint32_t nBytes) {
    if (nBytes == 0 || nBytes > m_WriteBuffer.GetLength() - m_WriteOffset) {
        Fail();
        return;
    }
    m_WriteOffset += nBytes;
    if (m_WriteOffset < m_WriteBuffer.GetLength()) {
        if (StartWrite() != eRC_Success) Fail();
    } else if (m_BodyNotifier) {
        m_BodyNotifier->OnReadyForBody();
    } else {
        ReportRequestSent();
    }
}

void ZephHttpClientConnection::ReportRequestSent() {
    if (m_RequestNotifiers.empty()) return;
    ZephHttpRequestNotifierIf* pNotifier = m_RequestNotifiers.front();
    m_RequestNotifiers.pop_front();
    if (pNotifier) pNotifier->OnRequestSent();
}

}  // namespace OmbryZephCore
