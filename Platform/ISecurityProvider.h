#pragma once

#include "Platform/Current.h"
#include "Platform/ICertificates.h"
#include "Platform/Result.h"

#include <cstdint>

/// The security support provider interface of a platform that has one: the fields of these records and the
/// values of these constants are those of that interface, so that a platform's side can hand them through as
/// they are. Types and functions have its published names; the constants, which are macros there, have the
/// same words in the letters of ours: `SecEOk` is SEC_E_OK. Integers are fixed in width: a status is negative
/// exactly when it is a failure, which a wider `long` would hide.
namespace Ombry::Platform {

using SECURITY_STATUS = std::int32_t;

inline constexpr SECURITY_STATUS SecEOk = 0;
inline constexpr SECURITY_STATUS SecIContinueNeeded = 0x00090312;
inline constexpr SECURITY_STATUS SecICompleteNeeded = 0x00090313;
inline constexpr SECURITY_STATUS SecICompleteAndContinue = 0x00090314;
inline constexpr SECURITY_STATUS SecIContextExpired = 0x00090317;
inline constexpr SECURITY_STATUS SecIRenegotiate = 0x00090321;
inline constexpr SECURITY_STATUS SecEInvalidHandle = static_cast<std::int32_t>(0x80090301);
inline constexpr SECURITY_STATUS SecEInternalError = static_cast<std::int32_t>(0x80090304);
inline constexpr SECURITY_STATUS SecEInvalidToken = static_cast<std::int32_t>(0x80090308);
inline constexpr SECURITY_STATUS SecEIncompleteMessage = static_cast<std::int32_t>(0x80090318);
inline constexpr SECURITY_STATUS SecEBufferTooSmall = static_cast<std::int32_t>(0x80090321);
inline constexpr SECURITY_STATUS SecEDecryptFailure = static_cast<std::int32_t>(0x80090330);

inline constexpr std::uint32_t SecBufferVersion = 0;
inline constexpr std::uint32_t SecBufferEmpty = 0;
inline constexpr std::uint32_t SecBufferData = 1;
inline constexpr std::uint32_t SecBufferToken = 2;
inline constexpr std::uint32_t SecBufferMissing = 4;
inline constexpr std::uint32_t SecBufferExtra = 5;
inline constexpr std::uint32_t SecBufferStreamTrailer = 6;
inline constexpr std::uint32_t SecBufferStreamHeader = 7;

inline constexpr std::uint32_t SecPkgCredOutbound = 2;
inline constexpr std::uint32_t SecPkgAttrStreamSizes = 4;
inline constexpr std::uint32_t SecPkgAttrRemoteCertContext = 0x53;

inline constexpr std::uint32_t IscReqConfidentiality = 0x10;
inline constexpr std::uint32_t IscReqUseSuppliedCreds = 0x80;
inline constexpr std::uint32_t IscReqStream = 0x8000;
inline constexpr std::uint32_t AscReqConfidentiality = 0x10;
inline constexpr std::uint32_t AscReqStream = 0x10000;

inline constexpr std::uint32_t SChannelCredVersion = 4;
inline constexpr std::uint32_t SchCredNoServernameCheck = 0x4;
inline constexpr std::uint32_t SchCredManualCredValidation = 0x8;
inline constexpr std::uint32_t SchCredNoDefaultCreds = 0x10;
inline constexpr std::uint32_t SchUseStrongCrypto = 0x400000;
inline constexpr std::uint32_t SChannelShutdown = 1;

inline constexpr std::uint32_t SpProtTls1_0 = 0x40 | 0x80;  ///< each version: server bit, client bit
inline constexpr std::uint32_t SpProtTls1_1 = 0x100 | 0x200;
inline constexpr std::uint32_t SpProtTls1_2 = 0x400 | 0x800;
inline constexpr std::uint32_t SpProtTls1_3 = 0x1000 | 0x2000;

/// Name of the provider package that speaks TLS.
inline constexpr const char* UnispNameA = "Microsoft Unified Security Protocol Provider";

struct SecHandle {
    std::uintptr_t dwLower = 0;
    std::uintptr_t dwUpper = 0;
};
using CredHandle = SecHandle;
using CtxtHandle = SecHandle;

struct SecBuffer {
    std::uint32_t cbBuffer = 0;  ///< bytes; on return what was produced, or left over
    std::uint32_t BufferType = SecBufferEmpty;
    void* pvBuffer = nullptr;
};

struct SecBufferDesc {
    std::uint32_t ulVersion = SecBufferVersion;
    std::uint32_t cBuffers = 0;
    SecBuffer* pBuffers = nullptr;
};

struct SecPkgInfoA {
    std::uint32_t fCapabilities = 0;
    std::uint16_t wVersion = 0;
    std::uint16_t wRPCID = 0;
    std::uint32_t cbMaxToken = 0;
    char* Name = nullptr;
    char* Comment = nullptr;
};

struct SecPkgContext_StreamSizes {
    std::uint32_t cbHeader = 0;
    std::uint32_t cbTrailer = 0;
    std::uint32_t cbMaximumMessage = 0;
    std::uint32_t cBuffers = 0;
    std::uint32_t cbBlockSize = 0;
};

struct SCHANNEL_CRED {
    std::uint32_t dwVersion = 0;
    std::uint32_t cCreds = 0;
    CertificateContextPointer* paCred = nullptr;
    void* hRootStore = nullptr;
    std::uint32_t cMappers = 0;
    void** aphMappers = nullptr;
    std::uint32_t cSupportedAlgs = 0;
    std::uint32_t* palgSupportedAlgs = nullptr;
    std::uint32_t grbitEnabledProtocols = 0;
    std::uint32_t dwMinimumCipherStrength = 0;
    std::uint32_t dwMaximumCipherStrength = 0;
    std::uint32_t dwSessionLifespan = 0;
    std::uint32_t dwFlags = 0;
    std::uint32_t dwCredFormat = 0;
};

struct SecTimeStamp {
    std::uint32_t LowPart = 0;
    std::int32_t HighPart = 0;
};

/// The operations of a loaded provider, as its function table lists them; handles, buffers and statuses keep
/// the meaning that the provider's documentation gives them. The table is the provider's and is valid while
/// its library is loaded. Separate contexts may be used from separate threads.
class SecurityFunctions {
public:
    virtual ~SecurityFunctions() = default;

    virtual SECURITY_STATUS AcquireCredentialsHandleA(const char* pszPrincipal, const char* pszPackage,
                                                      std::uint32_t fCredentialUse, void* pvLogonId,
                                                      void* pAuthData, void* pGetKeyFn,
                                                      void* pvGetKeyArgument, CredHandle* phCredential,
                                                      SecTimeStamp* ptsExpiry) = 0;
    virtual SECURITY_STATUS FreeCredentialsHandle(CredHandle* phCredential) = 0;

    /// `phContext` is null for the first call of a session and `phNewContext` then receives its handle.
    virtual SECURITY_STATUS InitializeSecurityContextA(CredHandle* phCredential, CtxtHandle* phContext,
                                                       const char* pszTargetName, std::uint32_t fContextReq,
                                                       std::uint32_t Reserved1, std::uint32_t TargetDataRep,
                                                       SecBufferDesc* pInput, std::uint32_t Reserved2,
                                                       CtxtHandle* phNewContext, SecBufferDesc* pOutput,
                                                       std::uint32_t* pfContextAttr,
                                                       SecTimeStamp* ptsExpiry) = 0;
    virtual SECURITY_STATUS AcceptSecurityContext(CredHandle* phCredential, CtxtHandle* phContext,
                                                  SecBufferDesc* pInput, std::uint32_t fContextReq,
                                                  std::uint32_t TargetDataRep, CtxtHandle* phNewContext,
                                                  SecBufferDesc* pOutput, std::uint32_t* pfContextAttr,
                                                  SecTimeStamp* ptsExpiry) = 0;
    virtual SECURITY_STATUS CompleteAuthToken(CtxtHandle* phContext, SecBufferDesc* pToken) = 0;
    virtual SECURITY_STATUS DeleteSecurityContext(CtxtHandle* phContext) = 0;
    virtual SECURITY_STATUS ApplyControlToken(CtxtHandle* phContext, SecBufferDesc* pInput) = 0;

    /// `pBuffer` is what `ulAttribute` says: a `SecPkgContext_StreamSizes`, or a `CertificateContextPointer`
    /// that goes back through `ISecurityProvider::FreeCertificate`.
    virtual SECURITY_STATUS QueryContextAttributesA(CtxtHandle* phContext, std::uint32_t ulAttribute,
                                                    void* pBuffer) = 0;

    /// The information is the provider's; it goes back through `FreeContextBuffer`.
    virtual SECURITY_STATUS QuerySecurityPackageInfoA(const char* pszPackageName,
                                                      SecPkgInfoA** ppPackageInfo) = 0;
    virtual SECURITY_STATUS FreeContextBuffer(void* pvContextBuffer) = 0;
    virtual SECURITY_STATUS EncryptMessage(CtxtHandle* phContext, std::uint32_t fQOP, SecBufferDesc* pMessage,
                                           std::uint32_t MessageSeqNo) = 0;
    virtual SECURITY_STATUS DecryptMessage(CtxtHandle* phContext, SecBufferDesc* pMessage,
                                           std::uint32_t MessageSeqNo, std::uint32_t* pfQOP) = 0;
};

/// A loaded library; 0 is none.
using SecurityModule = std::uintptr_t;
/// Address of a library's initialization function.
using SecurityEntryPoint = std::uintptr_t;

/// Where a provider's function table comes from. All operations may be called from any thread; a failure
/// carries the system's last error.
class ISecurityProvider {
public:
    virtual ~ISecurityProvider() = default;

    /// Each success is paired with one `ReleaseModule`.
    virtual ValueOr<SecurityModule> LoadModule(const char* name) = 0;
    virtual ValueOr<SecurityEntryPoint> FindEntryPoint(SecurityModule module, const char* name) = 0;

    /// Calls the initialization function. The table is valid until its module is freed.
    virtual ValueOr<SecurityFunctions*> CallEntryPoint(SecurityEntryPoint entryPoint) = 0;
    virtual void ReleaseModule(SecurityModule module) = 0;

    /// Gives back a certificate that `QueryContextAttributesA` handed out.
    virtual void FreeCertificate(CertificateContextPointer certificate) = 0;
};

template <>
ISecurityProvider& Production<ISecurityProvider>();

inline ISecurityProvider& SecurityProvider() {
    return Current<ISecurityProvider>();
}

}  // namespace Ombry::Platform
