#include "OmbryZephCore/ZephOpenSSLClientContext.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephOpenSSLConnection.h"
#include "OmbryZephCore/ZephOpenSSLErrors.h"
#include "Platform/Linux/OpenSSLInit.h"
#include "Platform/MadeOnce.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <mutex>
#include <utility>

namespace OmbryZephCore {
namespace {

constexpr int SecurityLevel = 2;   // of certificate chains: RSA and DH from 2048 bits, no SHA-1 signatures
constexpr int LevelTwoBits = 112;  // what the level asks of everything that has no rule of its own below
constexpr int Sha1Bits = 64;       // lets SHA-1 (64) and MD5-SHA1 (67) sign the TLS 1.0 and 1.1 handshakes
constexpr int MinimumCipherBits = 128;

constexpr const char* CipherList =
    "HIGH:!aNULL:!eNULL:!3DES:!MD5:!RC4:!DSS:!PSK:!SRP:!kRSAPSK:!CAMELLIA:!ARIA:!SEED:!AESCCM8";
// Of handshakes from TLS 1.2 on, which name them; TLS 1.0 and 1.1 have none to choose from.
constexpr const char* SignatureAlgorithms =
    "ECDSA+SHA256:ECDSA+SHA384:ECDSA+SHA512:ed25519:ed448:RSA-PSS+SHA256:RSA-PSS+SHA384:RSA-PSS+SHA512:"
    "rsa_pss_pss_sha256:rsa_pss_pss_sha384:rsa_pss_pss_sha512:"
    "RSA+SHA256:RSA+SHA384:RSA+SHA512:ECDSA+SHA224:RSA+SHA224";
// First the suite that RFC 8446 (section 9.1) makes every server have. Its strength is that of the key
// exchange ahead of it, and its SHA-256 has instructions of the processor, which the SHA-384 of the next one
// mostly has not. A server that has an order of its own goes by that.
constexpr const char* CipherSuites13 =
    "TLS_AES_128_GCM_SHA256:TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";

bool CipherAllowed(const SSL_CIPHER* cipher, int bits) {
    return SSL_CIPHER_get_bits(cipher, nullptr) >= MinimumCipherBits &&
           SSL_CIPHER_get_auth_nid(cipher) != NID_auth_null && bits >= LevelTwoBits;
}

// TLS 1.0 and 1.1 sign their handshake with SHA-1, which security level 1 and above forbids altogether. Level
// 0 would allow it in certificate chains too. So the level stays, since chain checks go by it alone, and this
// decides about the handshake. From TLS 1.2 on the list of signature algorithms offers no SHA-1; a server
// that signs with it all the same is refused here, since the library itself lets that pass.
int DecideSecurity(const SSL* session, const SSL_CTX*, int operation, int bits, int nid, void* other, void*) {
    switch (operation) {
        case SSL_SECOP_VERSION:
            return nid >= TLS1_VERSION;
        case SSL_SECOP_CIPHER_SUPPORTED:
        case SSL_SECOP_CIPHER_SHARED:
        case SSL_SECOP_CIPHER_CHECK:
            return CipherAllowed(static_cast<const SSL_CIPHER*>(other), bits);
        case SSL_SECOP_COMPRESSION:
            return 0;
        case SSL_SECOP_TICKET:
            return 1;
        case SSL_SECOP_SIGALG_SUPPORTED:
        case SSL_SECOP_SIGALG_SHARED:
            return bits >= Sha1Bits;
        case SSL_SECOP_SIGALG_CHECK:
            return bits >= (session && SSL_version(session) >= TLS1_2_VERSION ? LevelTwoBits : Sha1Bits);
        default:
            return bits >= LevelTwoBits;
    }
}

// Everything is set here, whatever a system-wide configuration may have put into the new context.
bool SetProtocolsAndCiphers(SSL_CTX* context) {
    SSL_CTX_clear_options(context, SSL_OP_NO_SSL_MASK | SSL_OP_ALLOW_UNSAFE_LEGACY_RENEGOTIATION |
                                       SSL_OP_LEGACY_SERVER_CONNECT | SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_options(context, SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_security_level(context, SecurityLevel);
    SSL_CTX_set_security_callback(context, DecideSecurity);
    return SSL_CTX_set_min_proto_version(context, TLS1_VERSION) == 1 &&
           SSL_CTX_set_max_proto_version(context, 0) == 1 &&
           SSL_CTX_set_cipher_list(context, CipherList) == 1 &&
           SSL_CTX_set1_sigalgs_list(context, SignatureAlgorithms) == 1 &&
           SSL_CTX_set_ciphersuites(context, CipherSuites13) == 1;
}

void SetModes(SSL_CTX* context) {
    // Without automatic retry a session ticket would hide the answer behind it until more input came.
    SSL_CTX_set_mode(
        context, SSL_MODE_AUTO_RETRY | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // Reading ahead would swallow the bytes behind the peer's close, which have to be given back.
    SSL_CTX_set_read_ahead(context, 0);
    // The library tells of sessions and keeps none, since it knows of no trusted key.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(context, ZephOpenSSLConnection::NoteNewSession);
}

// The library's own way to the platform's authorities obeys environment variables; the two names are asked
// for instead. Neither has to exist: without authorities every server is refused.
void LoadAuthorities(SSL_CTX* context, const std::string& replacement) {
    X509_STORE* store = SSL_CTX_get_cert_store(context);
    if (!replacement.empty()) {
        X509_STORE_load_file(store, replacement.c_str());
    } else {
        X509_STORE_load_file(store, X509_get_default_cert_file());
        X509_STORE_load_path(store, X509_get_default_cert_dir());
    }
    ERR_clear_error();
}

std::shared_ptr<SSL_CTX> MakeContext() {
    Ombry::Platform::InitializeOpenSSL();
    ERR_clear_error();
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!context || !SetProtocolsAndCiphers(context.get())) return nullptr;
    SetModes(context.get());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
    return context;
}

struct SharedContexts {
    std::mutex mutex;
    // Guarded by mutex:
    std::shared_ptr<SSL_CTX> unverified;
    std::shared_ptr<SSL_CTX> verified;
    std::string replacedAuthorities;
};

std::shared_ptr<SSL_CTX> UnverifiedContext() {
    SharedContexts& shared = Ombry::Platform::MadeOnce<SharedContexts>();
    std::lock_guard guard(shared.mutex);
    if (!shared.unverified) shared.unverified = MakeContext();
    return shared.unverified;
}

std::shared_ptr<SSL_CTX> VerifiedContext() {
    SharedContexts& shared = Ombry::Platform::MadeOnce<SharedContexts>();
    std::lock_guard guard(shared.mutex);
    if (!shared.verified) {
        std::shared_ptr<SSL_CTX> context = MakeContext();
        if (!context) return nullptr;
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
        LoadAuthorities(context.get(), shared.replacedAuthorities);
        shared.verified = std::move(context);
    }
    return shared.verified;
}

}  // namespace

ZephOpenSSLClientContext::ZephOpenSSLClientContext(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_Logger(std::move(logger)) {}

std::uint32_t ZephOpenSSLClientContext::Initialize(bool bManualValidation) {
    m_VerifiesServer = !bManualValidation;
    m_Context = bManualValidation ? UnverifiedContext() : VerifiedContext();
    if (m_Context) return 0;
    const auto error = static_cast<std::uint32_t>(ERR_peek_error());
    Ombry::LibraryLogger::LogCall(m_Logger, "OmbryZephCore::ZephOpenSSLClientContext::Initialize", 4,
                                  "Cannot make a TLS client context: ", TakeOpenSSLErrors);
    ERR_clear_error();
    return error == 0 ? 1 : error;
}

void ZephOpenSSLClientContext::ReplaceAuthorities(const std::string& pemFile) {
    SharedContexts& shared = Ombry::Platform::MadeOnce<SharedContexts>();
    std::lock_guard guard(shared.mutex);
    shared.replacedAuthorities = pemFile;
    shared.verified.reset();
}

}  // namespace OmbryZephCore
