#pragma once

#include "OmbryZephCore/ZephHttpClientConnectionIf.h"
#include "OmbryZephCore/ZephHttpHeaderParser.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephIOCompletionHandlerIf.h"
#include "OmbryZephCore/ZephIOObjectIf.h"
#include "OmbryZephCore/ZephSSLNotifierIf.h"
#include "OmbryZephCore/ZephTaskIf.h"
#include "OmbryZephCore/ZephTerminatorIf.h"
#include "OmbryZephCore/ZephUserTaskIf.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <thread>

namespace OmbryZephCore {

/// Speaks HTTP/1.1 (RFC 9112) as a client over the stage below it. Event driven: what it does, it does inside
/// the caller's calls and inside its completions. One thread, no lock. Nothing that it is given is owned, and
/// all of it must live until `Close`, or until the exchange that it belongs to has ended.
///
/// Bytes that reached this machine before the first byte of a request was handed to the socket are never its
/// answer, if no other answer was awaited then. Those that are seen when the last awaited answer ends close
/// the connection after use; those that the stage below finds before it sends fail it.
///
/// A read is started only while an answer is awaited, so that an idle connection has nothing pending. One
/// write is under way at a time: a request or a piece of a body that comes sooner is answered with
/// `eRC_IO_WriteAlreadyInProgress` and changes nothing, and so is the end of a chunked body. A failure of the
/// stream, of a head or of a handler asks the terminator to take the stack down, and then tells every
/// notifier and handler that still waits.
class ZephHttpClientConnection : public ZephHttpClientConnectionIf,
                                 public ZephIOCompletionHandlerIf,
                                 public ZephTaskIf {
public:
    /// Bytes by which the read buffer grows when a head does not fit; also the size of the first read.
    static constexpr std::uint32_t ReadStep = 0x4000;
    /// The largest read buffer that outlives the answer that it grew for; a larger one is given back down to
    /// `ReadStep`. Above the chunks of ordinary answers, so that none of those makes the buffer come and go.
    static constexpr std::uint32_t LargestKeptBuffer = 0x100000;

    ZephHttpClientConnection() = default;
    ZephHttpClientConnection(const ZephHttpClientConnection&) = delete;
    ZephHttpClientConnection& operator=(const ZephHttpClientConnection&) = delete;

    /// `pHost`: value of the Host header. `pScheduler` and `pSSLControl` may be null. 0,
    /// `eRC_InvalidArgument`, or what the stage below answers, and then nothing is kept.
    std::uint32_t Initialize(ZephIOObjectIf* pIO, ZephTerminatorIf* pTerminator, const char* pHost,
                             ZephUserTaskScheduleIf* pScheduler, ZephSSLControlIf* pSSLControl);
    /// Leaves the stage below, then `Reset`.
    void Close();
    /// Forgets every exchange. Requests not fully sent hear `OnRequestSent`, not `OnRequestFailed`: for them
    /// the wait is over, which says nothing about the exchange. Awaited answers hear `OnResponseFailed`.
    void Reset();

    void ContinueReceive() override;
    std::uint32_t SendRequest(const char* pMethod, const char* pUrl, bool bClose,
                              ZephHttpResponseHandlerIf* pResponseHandler,
                              ZephHttpRequestNotifierIf* pRequestNotifier, ZephHttpNotifierIf* pBodyNotifier,
                              bool bChunked, std::uint32_t nLength) override;
    /// A piece of 0 bytes is the end of the body: nothing of no length is ever sent.
    std::uint32_t WriteBody(std::uint32_t nBytes, const std::uint8_t* pData) override;
    std::uint32_t EndBody() override;
    std::uint32_t SendRequestWithBody(const char* pMethod, const char* pUrl, bool bClose,
                                      ZephHttpResponseHandlerIf* pResponseHandler,
                                      ZephHttpRequestNotifierIf* pRequestNotifier, std::uint32_t nLength,
                                      const std::uint8_t* pData) override;
    std::uint32_t AddHeader(const char* pName, const char* pValue) override;
    /// Of the answer at hand; valid until the next one is looked for.
    const char* GetResponseHeader(const char* pName) override;
    void ForEachResponseHeader(ZephHeaderCallback callback) override;
    void CopyResponseHeaders(ZephHttpHeaderCopy& to) override;
    void Abandon() override { Fail(); }
    /// Gives back the memory of both buffers, if no request is under way, until the next one.
    void ReleaseIdleMemory();
    bool IsOpen() override { return m_IO != nullptr; }
    bool IsCloseRequested() override { return m_CloseAfter; }

    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override;
    void AbortTask(std::uint32_t nTaskType) override;
    void OnDrained() override {}

    void DoTask() override;

private:
    /// What a step of the receiving side leaves its caller to do.
    enum class Progress {
        Again,  ///< look at the rest of the buffer
        Wait,   ///< a read was started, the handler holds the flow back, or no answer is awaited any more
        Failed  ///< `Fail` ran: touch nothing
    };

    static constexpr std::string_view LineEnd = "\r\n";
    static constexpr std::uint64_t MaxLength = std::numeric_limits<std::uint32_t>::max();

    static std::string_view Bytes(const std::uint8_t* pData, std::uint32_t nBytes) {
        return {reinterpret_cast<const char*>(pData), nBytes};
    }

    void ForgetNeighbours();
    void EndExchanges(void (ZephHttpRequestNotifierIf::*pReport)());
    [[gnu::cold]] Progress Fail();

    // Sending.
    std::uint32_t WriteHead(const char* pMethod, const char* pUrl, std::uint32_t nLength,
                            std::string_view body);
    std::uint32_t SetWriteBuffer(std::initializer_list<std::string_view> parts);
    std::uint32_t StartRequest(ZephHttpResponseHandlerIf* pResponseHandler,
                               ZephHttpRequestNotifierIf* pRequestNotifier);
    std::uint32_t StartWrite();
    void CompleteWrite(std::uint32_t nBytes);
    void ReportRequestSent();

    // Receiving, in ZephHttpClientReceive.cpp.
    void CompleteRead(std::uint32_t nBytes);
    void EndOfStream();
    Progress Receive();
    void LeaveCompleteResponse();
    void ClearResponse();
    Progress ReceiveHead();
    std::uint32_t ProcessHead();
    bool SaysClose() const;
    std::uint32_t SwitchProtocols();
    Progress ReadBody(bool bContinue);
    Progress DeliverBody(std::uint32_t nBytes);
    Progress CompleteBody();
    Progress ReadChunk();
    Progress ReadChunkHeader();
    Progress ReadChunkData();
    Progress ReadTrailer();
    template <class Call>
    Progress CallOldest(Call call);
    template <class Call>
    Progress EndResponse(Call call);

    // The read buffer, there too.
    Progress ReadMore(std::uint64_t nTotal = 0);
    void Compact();
    void GiveBackLargeBuffer();
    void Consume(std::uint32_t nBytes) { m_Consumed += nBytes; }
    std::size_t Find(std::string_view pattern, std::size_t nFrom);
    std::uint8_t* Front() { return m_ReadBuffer.GetData() + m_Consumed; }
    std::uint32_t Unread() const { return m_ReadFill - m_Consumed; }

    std::deque<ZephHttpResponseHandlerIf*> m_ResponseHandlers;
    std::deque<ZephHttpRequestNotifierIf*> m_RequestNotifiers;
    ZephIOObjectIf* m_IO = nullptr;
    ZephTerminatorIf* m_Terminator = nullptr;
    ZephUserTaskScheduleIf* m_Scheduler = nullptr;
    ZephSSLControlIf* m_SSLControl = nullptr;
    std::string m_Host;
    std::string m_PendingHeaders;

    /// Filled by the peer. It grows by `ReadStep` for as long as a head, a chunk's size line or a trailer has
    /// no end, and to the size of a chunk, which is delivered whole; bodies of known length and bodies that
    /// end with the connection pass through what room there is. There is no limit short of 4 GiB: an
    /// allocation that fails, or a length beyond that, fails the connection. A handler may refuse a chunk
    /// before the buffer grows for it. It shrinks only behind an answer (`LargestKeptBuffer`). The bytes that
    /// nobody has used yet lie from `m_Consumed` to `m_ReadFill`; they move to the front only ahead of a
    /// read.
    ZephIOBuffer m_ReadBuffer;
    std::uint32_t m_ReadFill = 0;
    std::uint32_t m_Consumed = 0;
    /// Unread bytes that a search went through in vain, so that a byte is searched once however the peer cuts
    /// its segments.
    std::uint32_t m_Searched = 0;
    /// While the stage below holds a pointer into `m_ReadBuffer`, no byte of it moves.
    bool m_ReadPending = false;

    // The state of the receiving side. `Receive` goes from state to state for as long as a handler waits and
    // the unread bytes suffice; where they do not, it starts a read. With no handler waiting it stays. Head
    // outranks the other states; of those the lowest that holds is meant.
    //
    //  state       holds with          leaves on: what the handler is told, and the next state
    //  ----------  ------------------  -----------------------------------------------------------------
    //  Head        not m_HaveHead      an empty line, and the head is parsed. Chunked: OnResponseStart,
    //                                  Size. Else nothing is told yet: UntilClose or Body
    //  Body        m_HaveHead          m_BodyLength bytes unread: OnCompleteResponse, End. Fewer, but some:
    //                                  OnResponseStart, Pieces
    //  Pieces      m_BodyStarted       bytes: OnResponseData, Pieces. m_BodyLength of them handed out:
    //                                  OnResponseEnd, End
    //  UntilClose  m_ReadUntilClose    bytes: OnResponseStart once, OnResponseData, UntilClose. The peer's
    //                                  close: OnResponseEnd, or OnCompleteResponse if none came; End
    //  Size        m_Chunked           a line end, and the size is parsed. 0: Trailer. Else
    //                                  OnChunkAnnounced, Data
    //  Data        m_ChunkHeaderSeen   the whole chunk unread: OnResponseData, Size
    //  Trailer     m_LastChunk         an empty line: OnResponseEnd, End
    //  End         m_BodyComplete or   another handler waiting, now or later: Head. Until then the headers
    //              m_TrailerSeen       can be asked for
    //
    // Of an informational answer the handler is told nothing but OnChunkAnnounced. It goes on waiting, so
    // that End is left at once, and a body of known length begins in Pieces.
    //
    //  event, in any state               what happens
    //  --------------------------------  ---------------------------------------------------------------
    //  the peer closes                   Fail, unless UntilClose ends by it and no other handler waits
    //  a read fails or cannot start      Fail; so does a head that cannot be parsed, a length beyond
    //                                    32 bits, and memory that is not there
    //  a handler answers an error        Fail; so does a handler that is null, but for OnChunkAnnounced
    //  a handler does not call           the next state is entered, and stays until the call. At the end
    //  ContinueReceive                   of an answer nobody needs to call it
    //  the last handler has its answer   unread bytes are dropped; m_CloseAfter if there were any, here
    //                                    or in the stage below
    //  Fail                              no handler waits any more: the state stays until Reset
    //  Reset, Close                      Head

    bool m_HaveHead = false;         ///< a head was parsed, and the next one is not looked for yet
    std::uint32_t m_HeadLength = 0;  ///< of that head, its empty line included
    ZephHttpHeaderParser m_Parser{ZephHttpHeaderParser::ModeResponse};  ///< its status and headers
    /// The connection is of no use behind this exchange: the request or a head of its answer says so, the
    /// protocol was switched, or bytes came that nobody asked for. Set anew by each request.
    bool m_CloseAfter = false;
    bool m_CloseAsked = false;       ///< the latest request said "Connection: close"
    bool m_Informational = false;    ///< status 100 to 199: another head follows, for the same handler
    bool m_Chunked = false;          ///< the body comes in chunks, and Content-Length counts for nothing
    bool m_BodyComplete = false;     ///< a body that is not chunked has ended, and nothing is left to tell
    std::uint32_t m_BodyLength = 0;  ///< Content-Length, or 0 without one; if chunked, of the chunk at hand
    bool m_ChunkHeaderSeen = false;  ///< the size line is parsed, and still unread
    std::uint32_t m_ChunkHeaderLength = 0;  ///< of that line, its line end included
    bool m_LastChunk = false;               ///< the size was 0
    bool m_TrailerSeen = false;             ///< a chunked body has ended, and nothing is left to tell
    bool m_BodyStarted = false;             ///< OnResponseStart was called for a body that is not chunked
    std::uint32_t m_BodyDelivered = 0;      ///< bytes of such a body that were handed out or passed over
    /// Set while a handler runs that has not called `ContinueReceive`; else that call runs `Receive`.
    std::thread::id m_CallbackThread;
    /// The body ends with the connection. Cleared by `Reset` alone: no answer follows on such a connection.
    bool m_ReadUntilClose = false;

    // The state of the sending side. A write that fails or cannot go on leads to Fail, Reset to Idle.
    //
    //  state    holds with                 leaves on
    //  -------  -------------------------  --------------------------------------------------------------
    //  Idle     neither of the below       SendRequest, SendRequestWithBody: Writing
    //  Writing  m_WritePending             the last byte sent. With m_BodyNotifier: OnReadyForBody, Body.
    //                                      Without: OnRequestSent, Idle
    //  Body     m_BodyNotifier alone       WriteBody: Writing. EndBody: m_BodyNotifier goes. Chunked:
    //                                      Writing, of the last chunk. Else OnRequestSent, Idle

    ZephIOBuffer m_WriteBuffer;       ///< a head, with or without its body, a piece of a body, or its end
    std::uint32_t m_WriteOffset = 0;  ///< bytes of it that were sent
    /// While the stage below holds a pointer into `m_WriteBuffer`, nothing replaces its content.
    bool m_WritePending = false;
    ZephHttpNotifierIf* m_BodyNotifier = nullptr;  ///< is asked for the body, until that ends
    bool m_RequestChunked = false;                 ///< the body is sent in chunks
};

}  // namespace OmbryZephCore
