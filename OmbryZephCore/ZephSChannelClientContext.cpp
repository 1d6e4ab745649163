#include "OmbryZephCore/ZephSChannelClientContext.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephResultCodes.h"

namespace OmbryZephCore {

using namespace Ombry::Platform;
using Ombry::LibraryLogger::LogCall;

namespace {

SCHANNEL_CRED MakeCredentialData(bool bManualValidation) {
    SCHANNEL_CRED data;
    data.dwVersion = SChannelCredVersion;
    data.grbitEnabledProtocols = SpProtTls1_0 | SpProtTls1_1 | SpProtTls1_2 | SpProtTls1_3;
    data.dwMinimumCipherStrength = 128;
    data.dwFlags = SchUseStrongCrypto | SchCredNoDefaultCreds;
    if (bManualValidation) data.dwFlags |= SchCredManualCredValidation | SchCredNoServernameCheck;
    return data;
}

}  // namespace

ZephSChannelClientContext::ZephSChannelClientContext(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_Logger(logger), m_SSPI(logger) {}

ZephSChannelClientContext::~ZephSChannelClientContext() {
    CleanUp();
}

std::uint32_t ZephSChannelClientContext::Initialize(bool bManualValidation) {
    CleanUp();
    if (const std::uint32_t nResult = m_SSPI.Initialize(true)) return nResult;
    SCHANNEL_CRED data = MakeCredentialData(bManualValidation);
    SecTimeStamp expiry;
    const SECURITY_STATUS nStatus = m_SSPI.GetFunctions()->AcquireCredentialsHandleA(
        nullptr, UnispNameA, SecPkgCredOutbound, nullptr, &data, nullptr, nullptr, &m_Credentials, &expiry);
    if (nStatus < 0) {
        LogCall(m_Logger, "OmbryZephCore::ZephSChannelClientContext::Initialize", 4,
                "AcquireCredentialsHandleA failed with error ", nStatus);
        CleanUp();
        return static_cast<std::uint32_t>(nStatus);
    }
    m_HasCredentials = true;
    return eRC_Success;
}

void ZephSChannelClientContext::CleanUp() {
    if (m_HasCredentials) m_SSPI.GetFunctions()->FreeCredentialsHandle(&m_Credentials);
    m_HasCredentials = false;
    m_Credentials = {};
    m_SSPI.Unload();
}

}  // namespace OmbryZephCore
