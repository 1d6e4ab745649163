#include "Platform/ISecurityProvider.h"
#include "Platform/Windows/Api.h"

#include <schannel.h>
#include <sspi.h>

#include <cstddef>
#include <string_view>

// Records and numbers of the seam are handed to the system as they are. Nothing is defined here: a difference
// is an error of the compiler.

namespace Ombry::Platform {
namespace {

static_assert(SecEOk == SEC_E_OK && SecIContinueNeeded == SEC_I_CONTINUE_NEEDED &&
              SecICompleteNeeded == SEC_I_COMPLETE_NEEDED &&
              SecICompleteAndContinue == SEC_I_COMPLETE_AND_CONTINUE &&
              SecIContextExpired == SEC_I_CONTEXT_EXPIRED && SecIRenegotiate == SEC_I_RENEGOTIATE);
static_assert(SecEInvalidHandle == SEC_E_INVALID_HANDLE && SecEInternalError == SEC_E_INTERNAL_ERROR &&
              SecEInvalidToken == SEC_E_INVALID_TOKEN && SecEIncompleteMessage == SEC_E_INCOMPLETE_MESSAGE &&
              SecEBufferTooSmall == SEC_E_BUFFER_TOO_SMALL && SecEDecryptFailure == SEC_E_DECRYPT_FAILURE);
static_assert(SecBufferVersion == SECBUFFER_VERSION && SecBufferEmpty == SECBUFFER_EMPTY &&
              SecBufferData == SECBUFFER_DATA && SecBufferToken == SECBUFFER_TOKEN &&
              SecBufferMissing == SECBUFFER_MISSING && SecBufferExtra == SECBUFFER_EXTRA &&
              SecBufferStreamTrailer == SECBUFFER_STREAM_TRAILER &&
              SecBufferStreamHeader == SECBUFFER_STREAM_HEADER);
static_assert(SecPkgCredOutbound == SECPKG_CRED_OUTBOUND &&
              SecPkgAttrStreamSizes == SECPKG_ATTR_STREAM_SIZES &&
              SecPkgAttrRemoteCertContext == SECPKG_ATTR_REMOTE_CERT_CONTEXT);
static_assert(IscReqConfidentiality == ISC_REQ_CONFIDENTIALITY &&
              IscReqUseSuppliedCreds == ISC_REQ_USE_SUPPLIED_CREDS && IscReqStream == ISC_REQ_STREAM &&
              AscReqConfidentiality == ASC_REQ_CONFIDENTIALITY && AscReqStream == ASC_REQ_STREAM);
static_assert(SChannelCredVersion == SCHANNEL_CRED_VERSION &&
              SchCredNoServernameCheck == SCH_CRED_NO_SERVERNAME_CHECK &&
              SchCredManualCredValidation == SCH_CRED_MANUAL_CRED_VALIDATION &&
              SchCredNoDefaultCreds == SCH_CRED_NO_DEFAULT_CREDS &&
              SchUseStrongCrypto == SCH_USE_STRONG_CRYPTO && SChannelShutdown == SCHANNEL_SHUTDOWN);
static_assert(SpProtTls1_0 == SP_PROT_TLS1_0 && SpProtTls1_1 == SP_PROT_TLS1_1 &&
              SpProtTls1_2 == SP_PROT_TLS1_2 && SpProtTls1_3 == SP_PROT_TLS1_3);
static_assert(std::string_view(UnispNameA) == UNISP_NAME_A);
static_assert(CertificateEncoding == (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING));

// Whether a member of one record lies where that of another does, at the same size.
#define SAME_PLACE(record, member)                                          \
    static_assert(offsetof(record, member) == offsetof(::record, member) && \
                  sizeof(record::member) == sizeof(::record::member))

static_assert(sizeof(SECURITY_STATUS) == sizeof(::SECURITY_STATUS));
static_assert(sizeof(SecTimeStamp) == sizeof(::TimeStamp));

static_assert(sizeof(SecHandle) == sizeof(::SecHandle));
SAME_PLACE(SecHandle, dwLower);
SAME_PLACE(SecHandle, dwUpper);

static_assert(sizeof(SecBuffer) == sizeof(::SecBuffer));
SAME_PLACE(SecBuffer, cbBuffer);
SAME_PLACE(SecBuffer, BufferType);
SAME_PLACE(SecBuffer, pvBuffer);

static_assert(sizeof(SecBufferDesc) == sizeof(::SecBufferDesc));
SAME_PLACE(SecBufferDesc, ulVersion);
SAME_PLACE(SecBufferDesc, cBuffers);
SAME_PLACE(SecBufferDesc, pBuffers);

static_assert(sizeof(SecPkgInfoA) == sizeof(::SecPkgInfoA));
SAME_PLACE(SecPkgInfoA, fCapabilities);
SAME_PLACE(SecPkgInfoA, wVersion);
SAME_PLACE(SecPkgInfoA, wRPCID);
SAME_PLACE(SecPkgInfoA, cbMaxToken);
SAME_PLACE(SecPkgInfoA, Name);
SAME_PLACE(SecPkgInfoA, Comment);

static_assert(sizeof(SecPkgContext_StreamSizes) == sizeof(::SecPkgContext_StreamSizes));
SAME_PLACE(SecPkgContext_StreamSizes, cbHeader);
SAME_PLACE(SecPkgContext_StreamSizes, cbTrailer);
SAME_PLACE(SecPkgContext_StreamSizes, cbMaximumMessage);
SAME_PLACE(SecPkgContext_StreamSizes, cBuffers);
SAME_PLACE(SecPkgContext_StreamSizes, cbBlockSize);

static_assert(sizeof(SCHANNEL_CRED) == sizeof(::SCHANNEL_CRED));
SAME_PLACE(SCHANNEL_CRED, dwVersion);
SAME_PLACE(SCHANNEL_CRED, cCreds);
SAME_PLACE(SCHANNEL_CRED, paCred);
SAME_PLACE(SCHANNEL_CRED, hRootStore);
SAME_PLACE(SCHANNEL_CRED, cMappers);
SAME_PLACE(SCHANNEL_CRED, aphMappers);
SAME_PLACE(SCHANNEL_CRED, cSupportedAlgs);
SAME_PLACE(SCHANNEL_CRED, palgSupportedAlgs);
SAME_PLACE(SCHANNEL_CRED, grbitEnabledProtocols);
SAME_PLACE(SCHANNEL_CRED, dwMinimumCipherStrength);
SAME_PLACE(SCHANNEL_CRED, dwMaximumCipherStrength);
SAME_PLACE(SCHANNEL_CRED, dwSessionLifespan);
SAME_PLACE(SCHANNEL_CRED, dwFlags);
SAME_PLACE(SCHANNEL_CRED, dwCredFormat);

// A certificate of the system's is read through the front of its record; what follows there is not seen.
static_assert(sizeof(CertificateContext) <= sizeof(CERT_CONTEXT));
static_assert(offsetof(CertificateContext, encodingType) == offsetof(CERT_CONTEXT, dwCertEncodingType) &&
              sizeof(CertificateContext::encodingType) == sizeof(CERT_CONTEXT::dwCertEncodingType));
static_assert(offsetof(CertificateContext, encoded) == offsetof(CERT_CONTEXT, pbCertEncoded));
static_assert(offsetof(CertificateContext, encodedLength) == offsetof(CERT_CONTEXT, cbCertEncoded) &&
              sizeof(CertificateContext::encodedLength) == sizeof(CERT_CONTEXT::cbCertEncoded));

}  // namespace
}  // namespace Ombry::Platform
