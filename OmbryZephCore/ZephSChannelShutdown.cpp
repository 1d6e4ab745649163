#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephSChannelConnection.h"

#include <algorithm>
#include <cstring>

namespace OmbryZephCore {

using namespace Ombry::Platform;
using Ombry::LibraryLogger::LogCall;

namespace {

constexpr const char* ShuttingDown = "OmbryZephCore::ZephSChannelConnection::shutdown";

}  // namespace

std::int32_t ZephSChannelConnection::shutdown(bool bWaitForPeer) {
    m_WaitForPeer = bWaitForPeer;
    if (!HasProvider()) return -1;
    if (!m_ShutdownSent) {
        if (const Outcome outcome = SendClose()) return *outcome;
    }
    if (bWaitForPeer && !m_PeerClosed) return AwaitPeerClose();
    return IsShutdownComplete() ? 1 : 0;
}

ZephSChannelConnection::Outcome ZephSChannelConnection::SendClose() {
    std::uint32_t nToken = SChannelShutdown;
    SecBuffer buffer{sizeof nToken, SecBufferToken, &nToken};
    SecBufferDesc control{SecBufferVersion, 1, &buffer};
    SECURITY_STATUS nStatus = m_SSPI.GetFunctions()->ApplyControlToken(&m_Context, &control);
    if (nStatus < 0) {
        LogCall(m_Logger, ShuttingDown, 3, "ApplyControlToken failed with error ", nStatus);
        return -1;
    }
    TokenExchange exchange;
    OfferOutput(exchange);
    nStatus = DriveContext(exchange, false, StepFlags());
    if (nStatus == SecEBufferTooSmall) {
        m_OutputBlocked = true;
        return 0;
    }
    if (nStatus < 0) {
        LogCall(m_Logger, ShuttingDown, 3, StepName(), " failed with error ", nStatus);
        return -1;
    }
    AddToken(exchange);
    m_ShutdownSent = true;
    return std::nullopt;
}

// The provider finds the peer's close only in an input that ends with it, so the input is offered one byte
// longer each time, from nothing up to all that is waiting.
std::int32_t ZephSChannelConnection::AwaitPeerClose() {
    std::uint32_t nOffered = 0;
    while (!m_PeerClosed) {
        if (const Outcome outcome = OfferForClose(nOffered)) return *outcome;
    }
    return IsShutdownComplete() ? 1 : 0;
}

ZephSChannelConnection::Outcome ZephSChannelConnection::OfferForClose(std::uint32_t& nOffered) {
    TokenExchange exchange;
    OfferInput(exchange, nOffered);
    OfferOutput(exchange);
    const SECURITY_STATUS nStatus = DriveContext(exchange, true, StepFlags());
    if (nStatus == SecEBufferTooSmall) {
        m_OutputBlocked = true;
        return 0;
    }
    if (nStatus < 0 && nStatus != SecEIncompleteMessage) {
        LogCall(m_Logger, ShuttingDown, 3, StepName(), " failed with error ", nStatus);
        return -1;
    }
    const std::uint32_t nConsumed = nStatus < 0 ? 0 : DropOffered(exchange);
    const bool bAgain = nStatus == SecIContinueNeeded && exchange.output.cbBuffer == 0;
    if (bAgain && nConsumed != 0) {
        nOffered = 0;
        return std::nullopt;
    }
    if (bAgain || nStatus == SecEIncompleteMessage) return OfferOneMore(nOffered);
    if (nStatus != SecEOk && nStatus != SecIContextExpired) {
        LogCall(m_Logger, ShuttingDown, 3, "Unexpected success status from ", StepName());
    }
    AddToken(exchange);
    m_PeerClosed = true;
    return std::nullopt;
}

// A step that took nothing counts as one that lacks input, or it would be repeated for ever.
ZephSChannelConnection::Outcome ZephSChannelConnection::OfferOneMore(std::uint32_t& nOffered) {
    if (nOffered < m_ReadFill - m_PlaintextLength) {
        ++nOffered;
        return std::nullopt;
    }
    m_NeedInput = true;
    return 0;
}

// Removes what the provider took of an offer that may be shorter than the input; returns its bytes.
std::uint32_t ZephSChannelConnection::DropOffered(const TokenExchange& exchange) {
    const SecBuffer* pExtra = FindExtra(exchange);
    const std::uint32_t nConsumed =
        exchange.nOffered - (pExtra ? std::min(pExtra->cbBuffer, exchange.nOffered) : 0);
    if (nConsumed != 0) KeepTail(m_PlaintextLength, m_ReadFill - m_PlaintextLength - nConsumed);
    return nConsumed;
}

}  // namespace OmbryZephCore
