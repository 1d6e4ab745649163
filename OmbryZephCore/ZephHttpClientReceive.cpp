// The receiving half of ZephHttpClientConnection: everything between a completed read and the handlers of the
// answers that came with it. The header has the table of its states.

#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace OmbryZephCore {
namespace {

constexpr std::string_view HeadEnd = "\r\n\r\n";
constexpr std::uint32_t StatusOK = 200;
constexpr std::uint32_t StatusSwitchingProtocols = 101;

std::uint32_t DigitValue(char digit) {
    if (digit >= '0' && digit <= '9') return static_cast<std::uint32_t>(digit - '0');
    if (digit >= 'a' && digit <= 'f') return static_cast<std::uint32_t>(digit - 'a' + 10);
    if (digit >= 'A' && digit <= 'F') return static_cast<std::uint32_t>(digit - 'A' + 10);
    return std::numeric_limits<std::uint32_t>::max();
}

// A length of the peer's: the digits that `text` begins with, 0 if there are none. No sign, blank or prefix
// counts. False if the value needs more than 32 bits.
bool ParseLength(std::string_view text, std::uint32_t nBase, std::uint32_t& nLength) {
    std::uint64_t value = 0;
    for (const char character : text) {
        const std::uint32_t digit = DigitValue(character);
        if (digit >= nBase) break;
        value = value * nBase + digit;
        if (value > std::numeric_limits<std::uint32_t>::max()) return false;
    }
    nLength = static_cast<std::uint32_t>(value);
    return true;
}

// Whether the last coding of a Transfer-Encoding is "chunked", in exactly that case.
bool IsChunked(const char* pEncodings) {
    if (!pEncodings) return false;
    std::string_view last(pEncodings);
    last.remove_prefix(last.rfind(',') + 1);  // npos + 1 is 0
    last.remove_prefix(std::min(last.find_first_not_of(" \t"), last.size()));
    return last == "chunked";
}

}  // namespace

const char* ZephHttpClientConnection::GetResponseHeader(const char* pName) {
    return m_HaveHead ? m_Parser.GetHeader(pName) : nullptr;
}

void ZephHttpClientConnection::ForEachResponseHeader(ZephHeaderCallback callback) {
    if (m_HaveHead) m_Parser.ForEachHeader(std::move(callback));
}

void ZephHttpClientConnection::CopyResponseHeaders(ZephHttpHeaderCopy& to) {
    if (m_HaveHead) {
        m_Parser.CopyHeaders(to);
    } else {
        to.Clear();
    }
}

void ZephHttpClientConnection::ContinueReceive() {
    if (m_CallbackThread == std::this_thread::get_id()) {
        m_CallbackThread = {};  // the code around the handler goes on when it returns
    } else {
        Receive();
    }
}

void ZephHttpClientConnection::CompleteRead(std::uint32_t nBytes) {
    if (nBytes == 0) {
        EndOfStream();
    } else if (nBytes > m_ReadBuffer.GetLength() - m_ReadFill) {
        Fail();
    } else {
        m_ReadFill += nBytes;
        Receive();
    }
}

// The peer closed in good order: the end of a body that lasts until then, and a failure anywhere else.
void ZephHttpClientConnection::EndOfStream() {
    const bool bBodyEnds = m_ReadUntilClose && m_HaveHead && !m_BodyComplete;
    // Answers that are still awaited behind this one will never come.
    if (!bBodyEnds || ReadBody(false) == Progress::Again) Fail();
}

// Works through what is in the read buffer, until a read is under way or a handler holds the flow back.
ZephHttpClientConnection::Progress ZephHttpClientConnection::Receive() {
    Progress progress = Progress::Again;
    while (progress == Progress::Again) {
        if (m_ReadPending || m_ResponseHandlers.empty()) return Progress::Wait;
        LeaveCompleteResponse();
        if (!m_HaveHead) {
            progress = ReceiveHead();
        } else {
            progress = m_Chunked ? ReadChunk() : ReadBody(true);
        }
    }
    return progress;
}

// The headers of an answer stay readable behind its end; they go when the next one is looked for.
void ZephHttpClientConnection::LeaveCompleteResponse() {
    const bool bComplete =
        m_Chunked ? m_LastChunk && m_TrailerSeen : m_BodyComplete && m_BodyDelivered == m_BodyLength;
    if (!m_HaveHead || !bComplete) return;
    m_BodyDelivered = 0;
    m_BodyStarted = false;
    m_HaveHead = false;
}

void ZephHttpClientConnection::ClearResponse() {
    m_Informational = m_Chunked = m_BodyComplete = false;
    m_BodyLength = m_BodyDelivered = 0;
    m_BodyStarted = false;
    m_ChunkHeaderSeen = m_LastChunk = m_TrailerSeen = false;
    m_ChunkHeaderLength = 0;
}

ZephHttpClientConnection::Progress ZephHttpClientConnection::ReceiveHead() {
    const std::size_t offset = Find(HeadEnd, 0);
    if (offset == std::string_view::npos) return ReadMore();
    m_HeadLength = static_cast<std::uint32_t>(offset + HeadEnd.size());
    if (ProcessHead() != eRC_Success) return Fail();
    m_HaveHead = true;
    Consume(m_HeadLength);
    if (!m_Chunked || m_Informational) return Progress::Again;
    return CallOldest([this](ZephHttpResponseHandlerIf& handler) {
        return handler.OnResponseStart(m_Parser.GetStatusCode(), 0);
    });
}

std::uint32_t ZephHttpClientConnection::ProcessHead() {
    const std::uint32_t nResult = m_Parser.Parse(Front(), m_HeadLength);
    if (nResult != eRC_Success) return nResult;
    ClearResponse();
    // What an earlier head said, or a change of the protocol, says nothing of where this body ends.
    const bool bClose = m_CloseAsked || SaysClose();
    m_CloseAfter |= bClose;

    const char* const pLength = m_Parser.GetHeader("Content-Length");
    m_Chunked = IsChunked(m_Parser.GetHeader("Transfer-Encoding"));
    if (!m_Chunked && pLength && !ParseLength(pLength, 10, m_BodyLength)) return eRC_HTTP_BadResponseHeader;

    const std::uint32_t nStatus = m_Parser.GetStatusCode();
    m_Informational = nStatus >= 100 && nStatus <= 199;
    if (nStatus == StatusSwitchingProtocols) return SwitchProtocols();
    // No other status reads until the peer closes: without a length its body is empty.
    if (nStatus == StatusOK && !pLength && !m_Chunked && bClose) m_ReadUntilClose = true;
    return eRC_Success;
}

// Whether the head at hand announces the end of the connection.
bool ZephHttpClientConnection::SaysClose() const {
    if (const char* pConnection = m_Parser.GetHeader("Connection"))
        return std::strcmp(pConnection, "close") == 0;  // "Close" asks for nothing
    // The version of a response runs on through its head, so this finds no real answer of an HTTP/1.0 peer,
    // which thus counts as keep-alive.
    return std::strcmp(m_Parser.GetVersion(), "HTTP/1.0") == 0;
}

// A peer that changes the protocol leaves the connection of no use to the next request, asked for or not.
std::uint32_t ZephHttpClientConnection::SwitchProtocols() {
    const char* const pUpgrade = m_Parser.GetHeader("Upgrade");
    if (!pUpgrade) return eRC_HTTP_BadResponseHeader;
    m_CloseAfter = true;
    if (!m_SSLControl) return eRC_Success;
    // Any other protocol than this exact text counts as one without TLS.
    if (std::strcmp(pUpgrade, "TLS/1.0") == 0) {
        m_SSLControl->EnableSSL();
    } else {
        m_SSLControl->DisableSSL();
    }
    return eRC_Success;
}

// A body of known length, or one that lasts until the peer closes. `bContinue` false says that it closed.
ZephHttpClientConnection::Progress ZephHttpClientConnection::ReadBody(bool bContinue) {
    if (!bContinue) {
        m_BodyLength = m_BodyDelivered;
        return CompleteBody();
    }
    const std::uint32_t nRest = m_ReadUntilClose ? Unread() : m_BodyLength - m_BodyDelivered;
    if (!m_ReadUntilClose) {
        const bool bPiecewise = m_BodyStarted || m_Informational;
        const bool bDone = bPiecewise ? nRest == 0 : nRest <= Unread();
        if (bDone) return CompleteBody();
    }
    if (Unread() == 0) return ReadMore();
    return DeliverBody(std::min(nRest, Unread()));
}

// Hands out bytes of the body, never one beyond what the peer declared; the first time, only its beginning.
ZephHttpClientConnection::Progress ZephHttpClientConnection::DeliverBody(std::uint32_t nBytes) {
    if (!m_Informational && !m_BodyStarted) {
        m_BodyStarted = true;
        return CallOldest([this](ZephHttpResponseHandlerIf& handler) {
            return handler.OnResponseStart(m_Parser.GetStatusCode(), m_BodyLength);
        });
    }
    const std::uint8_t* const pData = Front();
    m_BodyDelivered += nBytes;
    Consume(nBytes);
    if (m_Informational) return Progress::Again;  // no handler hears of these answers
    return CallOldest(
        [&](ZephHttpResponseHandlerIf& handler) { return handler.OnResponseData(nBytes, pData); });
}

ZephHttpClientConnection::Progress ZephHttpClientConnection::CompleteBody() {
    m_BodyComplete = true;
    if (m_Informational) return Progress::Again;
    if (m_BodyStarted) {
        return EndResponse([](ZephHttpResponseHandlerIf& handler) { return handler.OnResponseEnd(); });
    }
    const std::uint8_t* const pData = Front();
    m_BodyDelivered = m_BodyLength;
    Consume(m_BodyLength);
    return EndResponse([&](ZephHttpResponseHandlerIf& handler) {
        return handler.OnCompleteResponse(m_Parser.GetStatusCode(), pData, m_BodyLength);
    });
}

ZephHttpClientConnection::Progress ZephHttpClientConnection::ReadChunk() {
    if (!m_ChunkHeaderSeen) {
        const Progress progress = ReadChunkHeader();
        if (progress != Progress::Again) return progress;
    }
    return m_LastChunk ? ReadTrailer() : ReadChunkData();
}

// The size line. What follows the digits, an extension or anything else, is not looked at; a line without
// digits is the last chunk.
ZephHttpClientConnection::Progress ZephHttpClientConnection::ReadChunkHeader() {
    const std::size_t offset = Find(LineEnd, 0);
    if (offset == std::string_view::npos) return ReadMore();
    m_ChunkHeaderLength = static_cast<std::uint32_t>(offset + LineEnd.size());
    if (!ParseLength(Bytes(Front(), m_ChunkHeaderLength), 16, m_BodyLength)) return Fail();
    m_LastChunk = m_BodyLength == 0;
    m_TrailerSeen = false;
    m_ChunkHeaderSeen = true;
    if (m_LastChunk) return Progress::Again;
    ZephHttpResponseHandlerIf* const pHandler = m_ResponseHandlers.front();
    const bool bRefused = pHandler && pHandler->OnChunkAnnounced(m_BodyLength) != eRC_Success;
    return bRefused ? Fail() : Progress::Again;
}

// A chunk goes out whole, in one call. The line end behind it is stepped over, whatever it is.
ZephHttpClientConnection::Progress ZephHttpClientConnection::ReadChunkData() {
    const std::uint64_t nTotal = std::uint64_t{m_ChunkHeaderLength} + m_BodyLength + LineEnd.size();
    if (Unread() < nTotal) return ReadMore(nTotal);
    const std::uint8_t* const pData = Front() + m_ChunkHeaderLength;
    Consume(static_cast<std::uint32_t>(nTotal));
    m_ChunkHeaderSeen = false;
    if (m_Informational) return Progress::Again;
    return CallOldest(
        [&](ZephHttpResponseHandlerIf& handler) { return handler.OnResponseData(m_BodyLength, pData); });
}

// Trailer headers are dropped.
ZephHttpClientConnection::Progress ZephHttpClientConnection::ReadTrailer() {
    const std::size_t offset = Find(HeadEnd, m_ChunkHeaderLength - LineEnd.size());
    if (offset == std::string_view::npos) return ReadMore();
    m_TrailerSeen = true;
    Consume(static_cast<std::uint32_t>(offset + HeadEnd.size()));
    if (m_Informational) return Progress::Again;
    return EndResponse([](ZephHttpResponseHandlerIf& handler) { return handler.OnResponseEnd(); });
}

// Calls the handler of the answer at hand. If it returned without `ContinueReceive`, the flow stops.
template <class Call>
ZephHttpClientConnection::Progress ZephHttpClientConnection::CallOldest(Call call) {
    ZephHttpResponseHandlerIf* const pHandler =
        m_ResponseHandlers.empty() ? nullptr : m_ResponseHandlers.front();
    if (!pHandler) return Fail();
    m_CallbackThread = std::this_thread::get_id();
    if (call(*pHandler) != eRC_Success) return Fail();
    const bool bHeld = m_CallbackThread != std::thread::id();
    m_CallbackThread = {};
    return bHeld ? Progress::Wait : Progress::Again;
}

// Takes the handler of the answer at hand out and tells it of the end. The handler may send its next request
// from there, so everything is settled before.
template <class Call>
ZephHttpClientConnection::Progress ZephHttpClientConnection::EndResponse(Call call) {
    ZephHttpResponseHandlerIf* pHandler = nullptr;
    if (!m_ResponseHandlers.empty()) {
        pHandler = m_ResponseHandlers.front();
        m_ResponseHandlers.pop_front();
    }
    if (!pHandler) return Fail();
    const bool bMore = !m_ResponseHandlers.empty();
    if (!bMore && (Unread() > 0 || m_IO->HasUnread())) {
        // Nobody asked for these bytes, and they must not answer a request that is yet to be sent.
        m_CloseAfter = true;
        m_ReadFill = m_Consumed;
    }
    if (call(*pHandler) != eRC_Success) return Fail();
    GiveBackLargeBuffer();
    return bMore ? Progress::Again : Progress::Wait;
}

// Starts a read behind the unread bytes, with room for `nTotal` unread bytes in all.
ZephHttpClientConnection::Progress ZephHttpClientConnection::ReadMore(std::uint64_t nTotal) {
    Compact();
    if (m_ReadFill == m_ReadBuffer.GetLength())
        nTotal = std::max(nTotal, std::uint64_t{m_ReadFill} + ReadStep);
    if (nTotal > MaxLength) return Fail();
    if (nTotal > m_ReadBuffer.GetLength() &&
        m_ReadBuffer.SetLength(static_cast<std::uint32_t>(nTotal)) != eRC_Success) {
        return Fail();
    }
    m_ReadPending = true;
    const std::uint32_t nResult =
        m_IO->StartRead(m_ReadBuffer.GetLength() - m_ReadFill, m_ReadBuffer.GetData() + m_ReadFill);
    if (nResult == eRC_Success) return Progress::Wait;
    m_ReadPending = false;
    return Fail();
}

void ZephHttpClientConnection::Compact() {
    if (m_Consumed == 0) return;
    if (Unread() > 0) std::memmove(m_ReadBuffer.GetData(), Front(), Unread());
    m_ReadFill = Unread();
    m_Consumed = 0;
}

// A connection may stay idle for minutes, and must not keep the room of its greatest chunk meanwhile.
void ZephHttpClientConnection::GiveBackLargeBuffer() {
    if (m_ReadBuffer.GetCapacity() <= LargestKeptBuffer || m_ReadPending || Unread() > 0) return;
    Compact();
    m_ReadBuffer.SetLength(ReadStep);  // without memory for the smaller one the larger one stays
}

// Offset of `pattern` in the unread bytes, at `nFrom` or behind; npos if it is not there yet. The search
// goes on where the last one in vain ended.
std::size_t ZephHttpClientConnection::Find(std::string_view pattern, std::size_t nFrom) {
    const std::size_t overlap = pattern.size() - 1;
    const std::size_t resume = m_Searched > overlap ? m_Searched - overlap : 0;
    const std::size_t offset = Bytes(Front(), Unread()).find(pattern, std::max(nFrom, resume));
    m_Searched = offset == std::string_view::npos ? Unread() : 0;
    return offset;
}

}  // namespace OmbryZephCore
