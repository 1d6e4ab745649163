#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephSChannelConnection.h"

#include <algorithm>
#include <utility>

namespace OmbryZephCore {

using namespace Ombry::Platform;
using Ombry::LibraryLogger::LogCall;

namespace {

constexpr const char* Initializing = "OmbryZephCore::ZephSChannelConnection::InitializeAsClient";
constexpr const char* Continuing = "OmbryZephCore::ZephSChannelConnection::ContinueInitIfNecessary";

constexpr std::uint32_t FirstStepFlagsOfClient =
    IscReqStream | IscReqUseSuppliedCreds | IscReqConfidentiality;  // 0x8090
constexpr std::uint32_t RenegotiateFlags = 32;

// A certificate of the provider's, given back on every way out, an exception of a validator included.
class CertificateHolder {
public:
    explicit CertificateHolder(CertificateContextPointer certificate) : certificate(certificate) {}
    ~CertificateHolder() {
        if (certificate) SecurityProvider().FreeCertificate(certificate);
    }
    CertificateHolder(const CertificateHolder&) = delete;
    CertificateHolder& operator=(const CertificateHolder&) = delete;

private:
    const CertificateContextPointer certificate;
};

}  // namespace

std::int32_t ZephSChannelConnection::StartSession(std::uint32_t nRole, CredHandle* pCredentials,
                                                  const char* pTargetName) {
    CleanUp();
    if (DoCommonInitializationTasks() != 0) {
        CleanUp();
        return -1;
    }
    m_Role = nRole;
    m_Credentials = pCredentials;
    if (pTargetName) m_TargetName = pTargetName;
    return 0;
}

std::int32_t ZephSChannelConnection::InitializeAsClient(CredHandle* pCredentials, const char* pTargetName) {
    if (StartSession(RoleClient, pCredentials, pTargetName) != 0) return -1;
    TokenExchange exchange;
    OfferOutput(exchange);
    const SECURITY_STATUS nStatus = DriveContext(exchange, false, FirstStepFlagsOfClient);
    if (nStatus < 0) {
        LogCall(m_Logger, Initializing, 4, "InitializeSecurityContextA failed with error ", nStatus);
        CleanUp();
        return -1;
    }
    return FinishFirstStep(exchange, nStatus);
}

std::int32_t ZephSChannelConnection::InitializeAsServer(CredHandle* pCredentials) {
    if (StartSession(RoleServer, pCredentials, nullptr) != 0) return -1;
    m_Handshaking = true;
    m_NeedInput = true;
    return 0;
}

// A provider that is ready at once is taken at its word: no certificate is asked for here, and without
// stream sizes nothing can be written.
std::int32_t ZephSChannelConnection::FinishFirstStep(TokenExchange& exchange, SECURITY_STATUS nStatus) {
    m_Handshaking = true;
    switch (nStatus) {
        case SecIContinueNeeded:
            m_NeedInput = true;
            break;
        case SecICompleteNeeded:
        case SecICompleteAndContinue:
            if (!CompleteToken(exchange, Initializing)) {
                CleanUp();
                return -1;
            }
            if (nStatus == SecICompleteAndContinue) m_NeedInput = true;
            break;
        case SecEOk:
            m_NeedInput = false;
            m_Handshaking = false;
            break;
        default:
            LogCall(m_Logger, Initializing, 4, "Unexpected success status ", nStatus,
                    " from InitializeSecurityContextA.");
            break;
    }
    AddToken(exchange);
    return 0;
}

bool ZephSChannelConnection::CompleteToken(TokenExchange& exchange,
                                           const Ombry::LibraryLogger::Place& place) {
    const SECURITY_STATUS nStatus =
        m_SSPI.GetFunctions()->CompleteAuthToken(&m_Context, &exchange.outputDesc);
    if (nStatus >= 0) return true;
    LogCall(m_Logger, place, 4, "CompleteAuthToken failed with error ", nStatus);
    return false;
}

std::int32_t ZephSChannelConnection::ContinueInitIfNecessary() {
    if (m_Refused) return -1;
    if (!m_Handshaking) return 1;
    TokenExchange exchange;
    SECURITY_STATUS nStatus = SecEOk;
    if (const Outcome outcome = ExchangeTokens(exchange, nStatus)) return *outcome;
    if (ActOnStep(exchange, nStatus) != 0) return -1;
    AddToken(exchange);
    return m_Handshaking ? 0 : 1;
}

// Offers all input that is waiting. A provider that took a part and made no token yet is asked again with
// the rest, as long as it takes something each time: otherwise it waits for more.
ZephSChannelConnection::Outcome ZephSChannelConnection::ExchangeTokens(TokenExchange& exchange,
                                                                       SECURITY_STATUS& nStatus) {
    for (;;) {
        if (m_ReadFill == m_PlaintextLength) {
            m_NeedInput = true;
            return 0;
        }
        OfferInput(exchange, m_ReadFill - m_PlaintextLength);
        OfferOutput(exchange);
        nStatus = DriveContext(exchange, true, StepFlags());
        if (const Outcome outcome = JudgeStep(nStatus)) return outcome;
        const bool bProgress = ConsumeStepInput(exchange);
        const bool bAgain =
            nStatus == SecIContinueNeeded && FindExtra(exchange) != nullptr && exchange.output.cbBuffer == 0;
        if (!bAgain) return std::nullopt;
        if (!bProgress) {
            m_NeedInput = true;
            return 0;
        }
    }
}

ZephSChannelConnection::Outcome ZephSChannelConnection::JudgeStep(SECURITY_STATUS nStatus) {
    if (nStatus >= 0) return std::nullopt;
    if (nStatus == SecEBufferTooSmall) {
        m_OutputBlocked = true;
        return 0;
    }
    if (nStatus == SecEIncompleteMessage) {
        m_NeedInput = true;
        return 0;
    }
    LogCall(m_Logger, Continuing, 4, StepName(), " failed with error ", nStatus);
    return -1;
}

// Whether the provider took any of what it was offered.
bool ZephSChannelConnection::ConsumeStepInput(const TokenExchange& exchange) {
    const SecBuffer* pExtra = FindExtra(exchange);
    const std::uint32_t nExtra = pExtra ? std::min(pExtra->cbBuffer, exchange.nOffered) : 0;
    KeepTail(m_PlaintextLength, nExtra);
    return nExtra < exchange.nOffered;
}

std::int32_t ZephSChannelConnection::ActOnStep(TokenExchange& exchange, SECURITY_STATUS nStatus) {
    switch (nStatus) {
        case SecICompleteNeeded:
        case SecICompleteAndContinue:
            if (!CompleteToken(exchange, Continuing)) return -1;
            if (nStatus == SecICompleteAndContinue) m_NeedInput = true;
            return 0;
        case SecIContinueNeeded:
            m_NeedInput = true;
            return 0;
        case SecEOk:
            m_NeedInput = false;
            m_Handshaking = false;
            m_Refused = true;  // until the peer was accepted, even if its judge throws
            m_Refused = !FinishHandshake();
            return m_Refused ? -1 : 0;
        default:
            LogCall(m_Logger, Continuing, 3, "Unexpected success status ", nStatus, " from ", StepName(),
                    ".");
            return 0;
    }
}

bool ZephSChannelConnection::FinishHandshake() {
    return CheckPeerCertificate() && PrepareStream();
}

bool ZephSChannelConnection::CheckPeerCertificate() {
    if (!m_Validator) return true;
    CertificateContextPointer pCertificate = nullptr;
    const SECURITY_STATUS nStatus = m_SSPI.GetFunctions()->QueryContextAttributesA(
        &m_Context, SecPkgAttrRemoteCertContext, &pCertificate);
    if (nStatus < 0) {
        LogCall(m_Logger, Continuing, 4,
                "QueryContextAttributesA for SECPKG_ATTR_REMOTE_CERT_CONTEXT failed with error ", nStatus);
        return false;
    }
    const CertificateHolder holder(pCertificate);
    if (pCertificate && m_Validator(&pCertificate)) return true;
    LogCall(m_Logger, Continuing, 3, "Certificate validation returned failure.  Connection will be closed.");
    return false;
}

bool ZephSChannelConnection::PrepareStream() {
    const SECURITY_STATUS nStatus =
        m_SSPI.GetFunctions()->QueryContextAttributesA(&m_Context, SecPkgAttrStreamSizes, &m_StreamSizes);
    if (nStatus < 0) {
        LogCall(m_Logger, Continuing, 4,
                "QueryContextAttributesA for SECPKG_ATTR_STREAM_SIZES failed with error ", nStatus);
        return false;
    }
    const std::uint64_t nRecord =
        std::uint64_t{m_StreamSizes.cbHeader} + m_StreamSizes.cbTrailer + m_StreamSizes.cbMaximumMessage;
    return EnsureLength(m_WriteBuffer, nRecord) && EnsureLength(m_ReadBuffer, nRecord);
}

std::int32_t ZephSChannelConnection::request_renegotiate() {
    if (!HasProvider()) return -1;
    TokenExchange exchange;
    OfferOutput(exchange);
    const SECURITY_STATUS nStatus = DriveContext(exchange, false, RenegotiateFlags);
    if (nStatus == SecEBufferTooSmall) {
        m_OutputBlocked = true;
        return 0;
    }
    if (nStatus < 0) {
        LogCall(m_Logger, "OmbryZephCore::ZephSChannelConnection::request_renegotiate", 4, StepName(),
                " failed with error ", nStatus);
        return -1;
    }
    AddToken(exchange);
    m_Renegotiating = true;
    return 1;
}

}  // namespace OmbryZephCore
