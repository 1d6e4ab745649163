#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephSChannelConnection.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace OmbryZephCore {

using namespace Ombry::Platform;
using Ombry::LibraryLogger::LogCall;

namespace {

constexpr const char* Reading = "OmbryZephCore::ZephSChannelConnection::read_plaintext";
constexpr const char* Writing = "OmbryZephCore::ZephSChannelConnection::write_plaintext";
constexpr std::uint8_t AlertRecord = 0x15;  // RFC 5246, section 6.2.1
constexpr std::uint32_t TraceLine = 64;

std::string HexadecimalLines(const std::uint8_t* pBytes, std::uint32_t nBytes) {
    std::string text;
    for (std::uint32_t n = 0; n < nBytes; ++n) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%.2X", static_cast<unsigned>(pBytes[n]));
        text += pair;
        if ((n + 1) % TraceLine == 0) {
            text += '\n';
        } else if (n + 1 < nBytes) {
            text += ' ';
        }
    }
    return text;
}

// The smaller of what a caller named and what there is; a negative count is none.
std::uint32_t AtMost(std::int32_t nBytes, std::uint32_t nAvailable) {
    return nBytes <= 0 ? 0 : std::min(static_cast<std::uint32_t>(nBytes), nAvailable);
}

std::int32_t Count(std::uint32_t nBytes) {
    return static_cast<std::int32_t>(nBytes);  // never above what a caller named in 31 bits
}

// Takes `nBytes` off the front of a buffer that holds `nFill`.
void DropFront(std::uint8_t* pData, std::uint32_t nBytes, std::uint32_t& nFill) {
    nFill -= nBytes;
    if (nFill != 0 && nBytes != 0) std::memmove(pData, pData + nBytes, nFill);
}

}  // namespace

std::int32_t ZephSChannelConnection::inject_ciphertext(const std::uint8_t* pBuffer, std::int32_t nBytes) {
    m_NeedInput = false;
    const std::uint32_t nCount = AtMost(nBytes, m_ReadBuffer.GetLength() - m_ReadFill);
    if (nCount != 0) std::memcpy(m_ReadBuffer.GetData() + m_ReadFill, pBuffer, nCount);
    m_ReadFill += nCount;
    TraceCiphertext("OmbryZephCore::ZephSChannelConnection::inject_ciphertext", pBuffer, nCount);
    return ContinueInitIfNecessary() < 0 ? -1 : Count(nCount);
}

std::int32_t ZephSChannelConnection::extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) {
    m_OutputBlocked = false;
    const std::uint32_t nCount = AtMost(nBytes, m_WriteFill);
    if (nCount != 0) std::memcpy(pBuffer, m_WriteBuffer.GetData(), nCount);
    DropFront(m_WriteBuffer.GetData(), nCount, m_WriteFill);
    if (ContinueInitIfNecessary() < 0) return -1;
    TraceCiphertext("OmbryZephCore::ZephSChannelConnection::extract_ciphertext", pBuffer, nCount);
    return Count(nCount);
}

std::int32_t ZephSChannelConnection::extract_unprocessed_ciphertext(std::uint8_t* pBuffer,
                                                                    std::int32_t nBytes) {
    const std::uint32_t nCount = AtMost(nBytes, m_ReadFill);
    if (nCount != 0) std::memcpy(pBuffer, m_ReadBuffer.GetData(), nCount);
    DropFront(m_ReadBuffer.GetData(), nCount, m_ReadFill);
    m_PlaintextLength -= std::min(nCount, m_PlaintextLength);
    return Count(nCount);
}

void ZephSChannelConnection::TraceCiphertext(const Ombry::LibraryLogger::Place& place,
                                             const std::uint8_t* pBytes, std::uint32_t nBytes) {
    if (!m_Verbose || nBytes == 0) return;
    LogCall(m_Logger, place, 0, [&] { return HexadecimalLines(pBytes, nBytes); });
}

std::int32_t ZephSChannelConnection::read_plaintext(std::uint8_t* pBuffer, std::int32_t nBytes) {
    if (const std::int32_t nReady = ContinueInitIfNecessary(); nReady <= 0) return nReady;
    while (m_PlaintextLength == 0) {
        if (const Outcome outcome = DecryptNextRecord()) return *outcome;
    }
    return DeliverPlaintext(pBuffer, AtMost(nBytes, m_PlaintextLength));
}

// Empty records end without an outcome and leave less input: the caller asks again.
ZephSChannelConnection::Outcome ZephSChannelConnection::DecryptNextRecord() {
    if (m_ReadFill == 0) {
        m_NeedInput = true;
        return 0;
    }
    std::array<SecBuffer, 4> buffers;
    buffers[0] = {m_ReadFill, SecBufferData, m_ReadBuffer.GetData()};
    SecBufferDesc message{SecBufferVersion, 4, buffers.data()};
    const SECURITY_STATUS nStatus = m_SSPI.GetFunctions()->DecryptMessage(&m_Context, &message, 0, nullptr);
    if (nStatus == SecEIncompleteMessage) {
        m_NeedInput = true;
        return 0;
    }
    if (nStatus < 0) {
        LogCall(m_Logger, Reading, 4, "DecryptMessage failed with error ", nStatus);
        return -1;
    }
    DecryptedRecord record;
    for (SecBuffer& buffer : buffers) {
        if (buffer.BufferType == SecBufferData) record.data = &buffer;
        if (buffer.BufferType != SecBufferExtra) continue;
        buffer.cbBuffer = std::min(buffer.cbBuffer, m_ReadFill);
        record.extra = &buffer;
    }
    if (nStatus == SecIContextExpired) return ActOnPeerClose(record.extra, "(SEC_I_CONTEXT_EXPIRED)");
    if (nStatus == SecIRenegotiate) return ActOnRenegotiation(record.extra);
    return ActOnRecord(record);
}

ZephSChannelConnection::Outcome ZephSChannelConnection::ActOnRecord(const DecryptedRecord& record) {
    const std::uint32_t nOffered = m_ReadFill;
    const bool bEmptyData = record.data && record.data->cbBuffer == 0;
    // Some versions of the provider report a close as a record without data, so the kind of the record tells.
    if (bEmptyData && m_ReadBuffer.GetData()[0] == AlertRecord) {
        return ActOnPeerClose(record.extra, "(0x15 == *((unsigned char*)m_ReadBuffer.data()))");
    }
    if (record.data && !bEmptyData) {
        LogCall(m_Logger, Reading, 0, "got data buffer with ", record.data->cbBuffer, " bytes.");
        if (!TakePlaintext(*record.data)) return -1;
    }
    KeepExtra(record.extra, "(normal case)");
    if (m_PlaintextLength == 0 && m_ReadFill == nOffered) {
        m_NeedInput = true;  // nothing was taken: another round would only ask the same again
        return 0;
    }
    return std::nullopt;
}

// A data buffer that does not lie within what was offered is a failure of the provider.
bool ZephSChannelConnection::TakePlaintext(const SecBuffer& data) {
    std::uint8_t* pFront = m_ReadBuffer.GetData();
    const auto nOffset =
        reinterpret_cast<std::uintptr_t>(data.pvBuffer) - reinterpret_cast<std::uintptr_t>(pFront);
    if (nOffset > m_ReadFill || data.cbBuffer > m_ReadFill - nOffset) return false;
    m_PlaintextLength = data.cbBuffer;
    if (nOffset != 0) std::memmove(pFront, pFront + nOffset, m_PlaintextLength);
    return true;
}

// Moves what the provider left over right behind the plaintext.
void ZephSChannelConnection::KeepExtra(const SecBuffer* pExtra, const char* reason) {
    if (pExtra) {
        LogCall(m_Logger, Reading, 0, "got extra buffer with ", pExtra->cbBuffer, " bytes. ", reason);
    }
    const std::uint32_t nRoom = m_ReadFill - m_PlaintextLength;
    KeepTail(m_PlaintextLength, pExtra ? std::min(pExtra->cbBuffer, nRoom) : 0);
}

std::int32_t ZephSChannelConnection::ActOnPeerClose(const SecBuffer* pExtra, const char* reason) {
    m_PeerClosed = true;
    KeepExtra(pExtra, reason);
    return 0;
}

// A request of the peer's is answered with a first flight of our own, which leaves with the next output;
// the answer to a request of ours, or a client's first flight, carries the new handshake on at once. A
// count of plaintext is never the outcome. The flight is not called blocked output on purpose, so that one
// that a read made without new input waits for the next transfer.
std::int32_t ZephSChannelConnection::ActOnRenegotiation(const SecBuffer* pExtra) {
    KeepExtra(pExtra, "(SEC_I_RENEGOTIATE)");
    if (!m_Renegotiating && m_Role != RoleServer) {
        const std::int32_t nRequested = request_renegotiate();
        m_Renegotiating = false;
        if (nRequested == 1) m_Handshaking = true;
        return std::min(nRequested, 0);
    }
    m_Handshaking = true;
    m_Renegotiating = false;
    return std::min(ContinueInitIfNecessary(), 0);
}

std::int32_t ZephSChannelConnection::DeliverPlaintext(std::uint8_t* pBuffer, std::uint32_t nBytes) {
    if (nBytes != 0) std::memcpy(pBuffer, m_ReadBuffer.GetData(), nBytes);
    m_PlaintextLength -= nBytes;
    DropFront(m_ReadBuffer.GetData(), nBytes, m_ReadFill);
    if (m_Verbose) {
        LogCall(m_Logger, Reading, 0, "returning ", nBytes, " bytes of plaintext: '",
                std::string_view(reinterpret_cast<const char*>(pBuffer), nBytes), "'");
        LogCall(m_Logger, Reading, 0, m_PlaintextLength,
                " unprocessed bytes remain in the plaintext buffer.");
        LogCall(m_Logger, Reading, 0, m_ReadFill - m_PlaintextLength,
                " unprocessed bytes remain in the ciphertext buffer.");
    }
    return Count(nBytes);
}

std::int32_t ZephSChannelConnection::write_plaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) {
    if (m_Renegotiating) return 0;
    if (const std::int32_t nReady = ContinueInitIfNecessary(); nReady <= 0) return nReady;
    if (m_StreamSizes.cbMaximumMessage <= m_WriteFill) {
        m_OutputBlocked = true;
        return 0;
    }
    const std::uint32_t nCount = AtMost(nBytes, m_StreamSizes.cbMaximumMessage - m_WriteFill);
    std::uint8_t* pHeader = m_WriteBuffer.GetData() + m_WriteFill;
    std::uint8_t* pData = pHeader + m_StreamSizes.cbHeader;
    std::array<SecBuffer, 4> buffers;
    buffers[0] = {m_StreamSizes.cbHeader, SecBufferStreamHeader, pHeader};
    buffers[1] = {nCount, SecBufferData, pData};
    buffers[2] = {m_StreamSizes.cbTrailer, SecBufferStreamTrailer, pData + nCount};
    SecBufferDesc message{SecBufferVersion, 4, buffers.data()};
    if (nCount != 0) std::memcpy(pData, pBuffer, nCount);
    const SECURITY_STATUS nStatus = m_SSPI.GetFunctions()->EncryptMessage(&m_Context, 0, &message, 0);
    if (nStatus < 0) {
        LogCall(m_Logger, Writing, 4, "EncryptMEssage failed with error ", nStatus);
        return -1;
    }
    m_WriteFill += buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer;
    return Count(nCount);
}

}  // namespace OmbryZephCore
