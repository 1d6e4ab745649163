#include "Platform/Windows/SystemSecurityFunctions.h"

namespace Ombry::Platform::Windows {
namespace {

// SecurityLayout.cpp holds the records and the numbers equal to the system's.

::SecHandle* Native(SecHandle* handle) {
    return reinterpret_cast<::SecHandle*>(handle);
}

::SecBufferDesc* Native(SecBufferDesc* buffers) {
    return reinterpret_cast<::SecBufferDesc*>(buffers);
}

::TimeStamp* Native(SecTimeStamp* time) {
    return reinterpret_cast<::TimeStamp*>(time);
}

unsigned long* Native(std::uint32_t* number) {
    return reinterpret_cast<unsigned long*>(number);
}

// The interface takes texts without const, and does not write to them.
char* Native(const char* text) {
    return const_cast<char*>(text);
}

}  // namespace

SECURITY_STATUS SystemSecurityFunctions::AcquireCredentialsHandleA(
    const char* pszPrincipal, const char* pszPackage, std::uint32_t fCredentialUse, void* pvLogonId,
    void* pAuthData, void* pGetKeyFn, void* pvGetKeyArgument, CredHandle* phCredential,
    SecTimeStamp* ptsExpiry) {
    return table.AcquireCredentialsHandleA(Native(pszPrincipal), Native(pszPackage), fCredentialUse,
                                           pvLogonId, pAuthData, reinterpret_cast<SEC_GET_KEY_FN>(pGetKeyFn),
                                           pvGetKeyArgument, Native(phCredential), Native(ptsExpiry));
}

SECURITY_STATUS SystemSecurityFunctions::FreeCredentialsHandle(CredHandle* phCredential) {
    return table.FreeCredentialHandle(Native(phCredential));
}

SECURITY_STATUS SystemSecurityFunctions::InitializeSecurityContextA(
    CredHandle* phCredential, CtxtHandle* phContext, const char* pszTargetName, std::uint32_t fContextReq,
    std::uint32_t Reserved1, std::uint32_t TargetDataRep, SecBufferDesc* pInput, std::uint32_t Reserved2,
    CtxtHandle* phNewContext, SecBufferDesc* pOutput, std::uint32_t* pfContextAttr, SecTimeStamp* ptsExpiry) {
    return table.InitializeSecurityContextA(Native(phCredential), Native(phContext), Native(pszTargetName),
                                            fContextReq, Reserved1, TargetDataRep, Native(pInput), Reserved2,
                                            Native(phNewContext), Native(pOutput), Native(pfContextAttr),
                                            Native(ptsExpiry));
}

SECURITY_STATUS SystemSecurityFunctions::AcceptSecurityContext(
    CredHandle* phCredential, CtxtHandle* phContext, SecBufferDesc* pInput, std::uint32_t fContextReq,
    std::uint32_t TargetDataRep, CtxtHandle* phNewContext, SecBufferDesc* pOutput,
    std::uint32_t* pfContextAttr, SecTimeStamp* ptsExpiry) {
    return table.AcceptSecurityContext(Native(phCredential), Native(phContext), Native(pInput), fContextReq,
                                       TargetDataRep, Native(phNewContext), Native(pOutput),
                                       Native(pfContextAttr), Native(ptsExpiry));
}

SECURITY_STATUS SystemSecurityFunctions::CompleteAuthToken(CtxtHandle* phContext, SecBufferDesc* pToken) {
    return table.CompleteAuthToken(Native(phContext), Native(pToken));
}

SECURITY_STATUS SystemSecurityFunctions::DeleteSecurityContext(CtxtHandle* phContext) {
    return table.DeleteSecurityContext(Native(phContext));
}

SECURITY_STATUS SystemSecurityFunctions::ApplyControlToken(CtxtHandle* phContext, SecBufferDesc* pInput) {
    return table.ApplyControlToken(Native(phContext), Native(pInput));
}

SECURITY_STATUS SystemSecurityFunctions::QueryContextAttributesA(CtxtHandle* phContext,
                                                                 std::uint32_t ulAttribute, void* pBuffer) {
    return table.QueryContextAttributesA(Native(phContext), ulAttribute, pBuffer);
}

SECURITY_STATUS SystemSecurityFunctions::QuerySecurityPackageInfoA(const char* pszPackageName,
                                                                   SecPkgInfoA** ppPackageInfo) {
    return table.QuerySecurityPackageInfoA(Native(pszPackageName),
                                           reinterpret_cast<::SecPkgInfoA**>(ppPackageInfo));
}

SECURITY_STATUS SystemSecurityFunctions::FreeContextBuffer(void* pvContextBuffer) {
    return table.FreeContextBuffer(pvContextBuffer);
}

SECURITY_STATUS SystemSecurityFunctions::EncryptMessage(CtxtHandle* phContext, std::uint32_t fQOP,
                                                        SecBufferDesc* pMessage, std::uint32_t MessageSeqNo) {
    return table.EncryptMessage(Native(phContext), fQOP, Native(pMessage), MessageSeqNo);
}

SECURITY_STATUS SystemSecurityFunctions::DecryptMessage(CtxtHandle* phContext, SecBufferDesc* pMessage,
                                                        std::uint32_t MessageSeqNo, std::uint32_t* pfQOP) {
    return table.DecryptMessage(Native(phContext), Native(pMessage), MessageSeqNo, Native(pfQOP));
}

}  // namespace Ombry::Platform::Windows
