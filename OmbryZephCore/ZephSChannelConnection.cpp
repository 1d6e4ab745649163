#include "OmbryZephCore/ZephSChannelConnection.h"

#include "LibraryLogger/LogCall.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace OmbryZephCore {

using namespace Ombry::Platform;
using Ombry::LibraryLogger::LogCall;

namespace {

constexpr std::uint32_t NextStepFlagsOfClient = IscReqStream | IscReqConfidentiality;   // 0x8010
constexpr std::uint32_t FirstStepFlagsOfServer = AscReqStream | AscReqConfidentiality;  // 0x10010

}  // namespace

ZephSChannelConnection::ZephSChannelConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_Logger(logger), m_SSPI(logger) {}

ZephSChannelConnection::~ZephSChannelConnection() {
    CleanUp();
}

void ZephSChannelConnection::CleanUp() {
    if (m_ContextValid) m_SSPI.GetFunctions()->DeleteSecurityContext(&m_Context);
    for (ZephIOBuffer* pBuffer : {&m_ReadBuffer, &m_WriteBuffer}) {
        if (pBuffer->GetLength() != 0) pBuffer->SetLength(0);
    }
    m_SSPI.Unload();
    m_TargetName.reset();
    m_Credentials = nullptr;
    m_ReadFill = m_WriteFill = m_PlaintextLength = m_ContextAttributes = 0;
    m_Context = {};
    m_StreamSizes = {};
    m_NeedInput = m_OutputBlocked = m_Handshaking = m_Renegotiating = false;
    m_PeerClosed = m_ShutdownSent = m_ContextValid = m_WaitForPeer = m_Refused = false;
}

std::int32_t ZephSChannelConnection::DoCommonInitializationTasks() {
    if (m_SSPI.Initialize(true) != 0) return -1;
    SecPkgInfoA* pInfo = nullptr;
    const SECURITY_STATUS nStatus = m_SSPI.GetFunctions()->QuerySecurityPackageInfoA(UnispNameA, &pInfo);
    if (nStatus < 0) {
        LogCall(m_Logger, "OmbryZephCore::ZephSChannelConnection::DoCommonInitializationTasks", 4,
                "QuerySecurityPackageInfoA failed with error ", nStatus);
        return -1;
    }
    const bool bHasRoom =
        EnsureLength(m_WriteBuffer, pInfo->cbMaxToken) && EnsureLength(m_ReadBuffer, pInfo->cbMaxToken);
    m_SSPI.GetFunctions()->FreeContextBuffer(pInfo);
    return bHasRoom ? 0 : -1;
}

bool ZephSChannelConnection::EnsureLength(ZephIOBuffer& buffer, std::uint64_t nLength) {
    if (nLength > std::numeric_limits<std::uint32_t>::max()) return false;
    return buffer.GetLength() >= nLength || buffer.SetLength(static_cast<std::uint32_t>(nLength)) == 0;
}

const char* ZephSChannelConnection::StepName() const {
    return m_Role == RoleServer ? "AcceptSecurityContext" : "InitializeSecurityContextA";
}

// A server asks on its first round for what it wants, and later for what it got.
std::uint32_t ZephSChannelConnection::StepFlags() const {
    if (m_Role != RoleServer) return NextStepFlagsOfClient;
    return m_ContextValid ? m_ContextAttributes : FirstStepFlagsOfServer;
}

void ZephSChannelConnection::OfferInput(TokenExchange& exchange, std::uint32_t nOffered) {
    exchange.nOffered = nOffered;
    exchange.input[0] = {nOffered, SecBufferToken, m_ReadBuffer.GetData() + m_PlaintextLength};
    exchange.input[1] = {0, SecBufferEmpty, nullptr};
}

void ZephSChannelConnection::OfferOutput(TokenExchange& exchange) {
    exchange.nRoom = m_WriteBuffer.GetLength() - m_WriteFill;
    exchange.output = {exchange.nRoom, SecBufferToken, m_WriteBuffer.GetData() + m_WriteFill};
}

SECURITY_STATUS ZephSChannelConnection::DriveContext(TokenExchange& exchange, bool bWithInput,
                                                     std::uint32_t nFlags) {
    SecurityFunctions& functions = *m_SSPI.GetFunctions();
    CtxtHandle* pContext = m_ContextValid ? &m_Context : nullptr;
    SecBufferDesc* pInput = bWithInput ? &exchange.inputDesc : nullptr;
    std::uint32_t nAttributes = 0;
    SecTimeStamp expiry;
    SECURITY_STATUS nStatus;
    if (m_Role == RoleServer) {
        nStatus = functions.AcceptSecurityContext(m_Credentials, pContext, pInput, nFlags, 0, &m_Context,
                                                  &exchange.outputDesc, &nAttributes, &expiry);
    } else {
        nStatus = functions.InitializeSecurityContextA(
            m_Credentials, pContext, m_TargetName ? m_TargetName->c_str() : nullptr, nFlags, 0, 0, pInput, 0,
            &m_Context, &exchange.outputDesc, &nAttributes, &expiry);
    }
    if (nStatus >= 0) {
        m_ContextValid = true;
        m_ContextAttributes = nAttributes;
    }
    return nStatus;
}

void ZephSChannelConnection::AddToken(const TokenExchange& exchange) {
    m_WriteFill += std::min(exchange.output.cbBuffer, exchange.nRoom);
}

const SecBuffer* ZephSChannelConnection::FindExtra(const TokenExchange& exchange) {
    for (const SecBuffer& buffer : exchange.input) {
        if (buffer.BufferType == SecBufferExtra) return &buffer;
    }
    return nullptr;
}

// What a provider leaves over is always the end of what it was offered; its pointer to it is not always set.
void ZephSChannelConnection::KeepTail(std::uint32_t nPosition, std::uint32_t nCount) {
    std::uint8_t* pData = m_ReadBuffer.GetData();
    std::memmove(pData + nPosition, pData + m_ReadFill - nCount, nCount);
    m_ReadFill = nPosition + nCount;
}

}  // namespace OmbryZephCore
