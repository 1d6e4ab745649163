#pragma once

#include "Platform/ISecurityProvider.h"
#include "Platform/Windows/Api.h"

#include <sspi.h>

namespace Ombry::Platform::Windows {

/// The function table of a provider's library as the operations of the seam: every call goes through as it
/// is. The table is the library's and must stay loaded as long as it is called.
class SystemSecurityFunctions : public SecurityFunctions {
public:
    explicit SystemSecurityFunctions(const SecurityFunctionTableA& table) : table(table) {}

    SECURITY_STATUS AcquireCredentialsHandleA(const char* pszPrincipal, const char* pszPackage,
                                              std::uint32_t fCredentialUse, void* pvLogonId, void* pAuthData,
                                              void* pGetKeyFn, void* pvGetKeyArgument,
                                              CredHandle* phCredential, SecTimeStamp* ptsExpiry) override;
    SECURITY_STATUS FreeCredentialsHandle(CredHandle* phCredential) override;
    SECURITY_STATUS InitializeSecurityContextA(CredHandle* phCredential, CtxtHandle* phContext,
                                               const char* pszTargetName, std::uint32_t fContextReq,
                                               std::uint32_t Reserved1, std::uint32_t TargetDataRep,
                                               SecBufferDesc* pInput, std::uint32_t Reserved2,
                                               CtxtHandle* phNewContext, SecBufferDesc* pOutput,
                                               std::uint32_t* pfContextAttr,
                                               SecTimeStamp* ptsExpiry) override;
    SECURITY_STATUS AcceptSecurityContext(CredHandle* phCredential, CtxtHandle* phContext,
                                          SecBufferDesc* pInput, std::uint32_t fContextReq,
                                          std::uint32_t TargetDataRep, CtxtHandle* phNewContext,
                                          SecBufferDesc* pOutput, std::uint32_t* pfContextAttr,
                                          SecTimeStamp* ptsExpiry) override;
    SECURITY_STATUS CompleteAuthToken(CtxtHandle* phContext, SecBufferDesc* pToken) override;
    SECURITY_STATUS DeleteSecurityContext(CtxtHandle* phContext) override;
    SECURITY_STATUS ApplyControlToken(CtxtHandle* phContext, SecBufferDesc* pInput) override;
    SECURITY_STATUS QueryContextAttributesA(CtxtHandle* phContext, std::uint32_t ulAttribute,
                                            void* pBuffer) override;
    SECURITY_STATUS QuerySecurityPackageInfoA(const char* pszPackageName,
                                              SecPkgInfoA** ppPackageInfo) override;
    SECURITY_STATUS FreeContextBuffer(void* pvContextBuffer) override;
    SECURITY_STATUS EncryptMessage(CtxtHandle* phContext, std::uint32_t fQOP, SecBufferDesc* pMessage,
                                   std::uint32_t MessageSeqNo) override;
    SECURITY_STATUS DecryptMessage(CtxtHandle* phContext, SecBufferDesc* pMessage, std::uint32_t MessageSeqNo,
                                   std::uint32_t* pfQOP) override;

private:
    const SecurityFunctionTableA& table;
};

}  // namespace Ombry::Platform::Windows
