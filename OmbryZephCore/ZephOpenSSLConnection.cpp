#include "OmbryZephCore/ZephOpenSSLConnection.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephOpenSSLClientContext.h"
#include "OmbryZephCore/ZephOpenSSLErrors.h"
#include "OmbryZephCore/ZephOpenSSLServerName.h"
#include "OmbryZephCore/ZephOpenSSLSessions.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace OmbryZephCore {

using Ombry::LibraryLogger::LogCall;

namespace {

constexpr std::int32_t OutputCap = 16384;  // one full record
constexpr std::int32_t TraceLineBytes = 64;

// What a session holds stays far below the limit of int.
std::int32_t Pending(const ZephOpenSSLBuffer& buffer) {
    return static_cast<std::int32_t>(buffer.Pending());
}

std::int32_t TakeFrom(ZephOpenSSLBuffer& buffer, std::uint8_t* pBuffer, std::int32_t nBytes) {
    return static_cast<std::int32_t>(buffer.Take(pBuffer, static_cast<std::uint32_t>(std::max(nBytes, 0))));
}

std::string Hexadecimal(const std::uint8_t* pBuffer, std::int32_t nBytes) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(static_cast<std::size_t>(nBytes) * 3);
    for (std::int32_t i = 0; i < nBytes; ++i) {
        text += Digits[pBuffer[i] >> 4];
        text += Digits[pBuffer[i] & 15];
        if ((i + 1) % TraceLineBytes == 0) {
            text += '\n';
        } else if (i + 1 < nBytes) {
            text += ' ';
        }
    }
    return text;
}

// One entry that something else left on this thread would turn "more input needed" into a failure. The queue
// is nearly always empty, and to see that costs less than to clear it.
void ForgetStaleErrors() {
    if (ERR_peek_error() != 0) ERR_clear_error();
}

// The one that ended a transfer of data; those ahead of it may be anybody's.
void ForgetAllButLastError() {
    const unsigned long last = ERR_peek_last_error();
    ERR_clear_error();
    if (last != 0) ERR_raise(ERR_GET_LIB(last), ERR_GET_REASON(last));
}

}  // namespace

void ZephOpenSSLConnection::SessionDeleter::operator()(ssl_st* session) const {
    // The library would spoil the session of a connection that was dropped without a close; only TLS 1.0
    // asked for that (RFC 5246, section 7.2.1).
    SSL_set_shutdown(session, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
    SSL_free(session);
}

ZephOpenSSLConnection::ZephOpenSSLConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_Logger(std::move(logger)), m_Failed(true) {}

ZephOpenSSLConnection::~ZephOpenSSLConnection() = default;

std::int32_t ZephOpenSSLConnection::InitializeAsClient(const ZephOpenSSLClientContext& context,
                                                       const std::string& targetName,
                                                       const std::string& sessionScope) {
    Clear();
    ForgetStaleErrors();
    // The library judges chain and name in a full handshake alone.
    m_SessionScope = context.VerifiesServer() ? std::string() : sessionScope;
    if (!MakeSession(context) || !SetServerName(targetName, context.VerifiesServer())) {
        return Fail("Starting a TLS session");
    }
    OfferKeptSession();
    return ContinueInitIfNecessary() < 0 ? -1 : 0;
}

void ZephOpenSSLConnection::Clear() {
    m_Session.reset();
    m_Input.Clear();
    m_Output.Clear();
    m_NeedInput = m_InputUsedUp = m_HoldsNothing = m_Failed = m_Handshaking = m_Established = m_Unjudged =
        m_SessionIsNew = m_CloseCame = m_PeerClosed = m_ShutdownSent = m_WaitForPeer = false;
}

bool ZephOpenSSLConnection::MakeSession(const ZephOpenSSLClientContext& context) {
    if (context.Get() == nullptr) return false;
    m_Session.reset(SSL_new(context.Get()));
    if (!m_Session) return false;
    BIO* input = m_Input.MakeBio();
    BIO* output = m_Output.MakeBio();
    if (input == nullptr || output == nullptr) {
        BIO_free(input);
        BIO_free(output);
        return false;
    }
    SSL_set_bio(m_Session.get(), input, output);
    SSL_set_connect_state(m_Session.get());
    m_Handshaking = true;
    if (SSL_set_app_data(m_Session.get(), this) != 1) return false;
    SSL_set_info_callback(m_Session.get(), NoteEvent);
    return true;
}

// A server that does not know the session, or its key no more, makes a full handshake.
void ZephOpenSSLConnection::OfferKeptSession() {
    if (m_SessionScope.empty()) return;
    const auto session = ZephOpenSSLSessions::Shared().Take(m_SessionScope);
    if (session && SSL_set_session(m_Session.get(), session.get()) != 1) ERR_clear_error();
}

// Up to TLS 1.2 a session is there before the server has proved itself and was judged, and is kept behind
// that alone. The tickets of TLS 1.3 come behind the handshake.
int ZephOpenSSLConnection::NoteNewSession(ssl_st* connection, ssl_session_st*) {
    auto& self = *static_cast<ZephOpenSSLConnection*>(SSL_get_app_data(connection));
    self.m_SessionIsNew = true;
    if (SSL_version(connection) >= TLS1_3_VERSION && self.m_Established && !self.m_Failed) self.KeepSession();
    return 0;
}

void ZephOpenSSLConnection::KeepSession() {
    if (!std::exchange(m_SessionIsNew, false) || m_SessionScope.empty()) return;
    if (SSL_SESSION* session = SSL_get_session(m_Session.get())) {
        ZephOpenSSLSessions::Shared().Keep(m_SessionScope, *session);
    }
}

// Behind a handshake that failed, or whose server was refused: what was offered may be why.
void ZephOpenSSLConnection::ForgetSessions() {
    if (!m_SessionScope.empty()) ZephOpenSSLSessions::Shared().Forget(m_SessionScope);
}

// The library can end a handshake and begin the next one in one call; that the first has ended shows here.
void ZephOpenSSLConnection::NoteEvent(const ssl_st* session, int where, int result) {
    auto& self = *static_cast<ZephOpenSSLConnection*>(SSL_get_app_data(session));
    if ((where & SSL_CB_HANDSHAKE_DONE) != 0) self.m_Unjudged = true;
    if (where == SSL_CB_READ_ALERT) self.m_CloseCame = (result & 0xFF) == SSL_AD_CLOSE_NOTIFY;
}

bool ZephOpenSSLConnection::SetServerName(const std::string& targetName, bool bVerify) {
    const ZephOpenSSLServerName name(targetName);
    if (name.CanBeSent() && SSL_set_tlsext_host_name(m_Session.get(), name.m_Text.c_str()) != 1) return false;
    if (!bVerify) return true;
    if (!name.CanBeChecked()) {
        LogCall(m_Logger, "OmbryZephCore::ZephOpenSSLConnection::SetServerName", 4,
                "The server's certificate cannot be checked against the name '", name.m_Text, "'.");
        return false;
    }
    SSL_set_hostflags(m_Session.get(), X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(m_Session.get(), name.m_Text.c_str()) == 1;
}

// 1 when data can flow both ways, 0 when the handshake waits for the peer or for someone to read, -1 on a
// failure. The library starts a renegotiation inside its reading; its state is asked for behind each call of
// it, so that no data is read past a handshake whose certificate was not checked.
std::int32_t ZephOpenSSLConnection::ContinueInitIfNecessary() {
    if (m_Failed) return -1;
    if (!m_Handshaking) return 1;
    if (m_Established) return ContinueRenegotiation();
    ForgetStaleErrors();
    const int result = SSL_do_handshake(m_Session.get());
    if (result == 1) {
        m_Handshaking = m_NeedInput = false;
        m_Established = true;
        return ValidateServer();
    }
    if (SSL_get_error(m_Session.get(), result) == SSL_ERROR_WANT_READ) {
        m_NeedInput = true;
        return 0;
    }
    // A close in the middle of the handshake ends here too. It is not authentic: taken for the end of the
    // session, it would let anyone on the path switch the connection to clear text.
    return Fail("SSL_do_handshake");
}

// Until the server's hello, data under the old keys may stand between its messages. The library takes it
// while it reads data, and fails on it in SSL_do_handshake. A look drives the handshake and leaves the data
// where it is, so that what stands behind the handshake is handed out only once the new keys were accepted.
std::int32_t ZephOpenSSLConnection::ContinueRenegotiation() {
    const int error = Look();
    if (error != SSL_ERROR_NONE && error != SSL_ERROR_WANT_READ && error != SSL_ERROR_ZERO_RETURN) {
        return Fail("Renegotiation");
    }
    if (!SSL_in_init(m_Session.get())) {
        m_Handshaking = m_NeedInput = false;
        return ValidateServer();
    }
    // As in the first handshake; and no further one may begin before the verdict on the last, since the data
    // in between would be under keys that nobody has judged.
    if (error == SSL_ERROR_ZERO_RETURN || m_Unjudged) return Fail("Renegotiation");
    if (error == SSL_ERROR_WANT_READ) m_NeedInput = true;
    return 0;
}

// Whether data can be read now: SSL_ERROR_NONE, or why not. Takes nothing.
int ZephOpenSSLConnection::Look() {
    std::uint8_t byte = 0;
    std::size_t nCount = 0;
    ForgetStaleErrors();
    const int result = SSL_peek_ex(m_Session.get(), &byte, 1, &nCount);
    OPENSSL_cleanse(&byte, 1);
    return SSL_get_error(m_Session.get(), result);
}

// Behind a transfer of data that moved nothing: SSL_ERROR_WANT_READ, SSL_ERROR_ZERO_RETURN for the peer's
// close, or SSL_ERROR_SSL. SSL_get_error would take an error that something else left on this thread for this
// session's, and forgetting those ahead of every transfer costs more than a lock: so they are forgotten where
// one has failed. The library asks for input only where nothing has.
int ZephOpenSSLConnection::WhyNothingMoved() {
    if (m_Input.WasAskedInVain()) return SSL_ERROR_WANT_READ;
    if (m_CloseCame) return SSL_ERROR_ZERO_RETURN;
    ForgetAllButLastError();
    return SSL_ERROR_SSL;
}

// Runs after the handshake and not at the Certificate message: only now has the server proved that it owns
// the key.
std::int32_t ZephOpenSSLConnection::ValidateServer() {
    m_Unjudged = false;
    if (!m_Validator) {
        KeepSession();
        return 1;
    }
    m_Failed = true;  // also if the validator throws
    bool accepted = false;
    unsigned char* encoded = nullptr;
    const X509* certificate = SSL_get0_peer_certificate(m_Session.get());
    const int length = certificate == nullptr ? 0 : i2d_X509(certificate, &encoded);
    if (length > 0) {
        const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(
            encoded, [](unsigned char* p) { OPENSSL_free(p); });
        const Ombry::Platform::CertificateContext context{Ombry::Platform::CertificateEncoding, encoded,
                                                          static_cast<std::uint32_t>(length)};
        Ombry::Platform::CertificateContextPointer pContext = &context;
        accepted = m_Validator(&pContext);
    }
    if (!accepted) {
        LogCall(m_Logger, "OmbryZephCore::ZephOpenSSLConnection::ContinueInitIfNecessary", 3,
                "Certificate validation returned failure.  Connection will be closed.");
        ForgetSessions();
        return -1;
    }
    m_Failed = false;
    KeepSession();
    return 1;
}

std::int32_t ZephOpenSSLConnection::inject_ciphertext(const std::uint8_t* pBuffer, std::int32_t nBytes) {
    if (m_Failed) return -1;
    m_NeedInput = m_InputUsedUp = m_HoldsNothing = false;
    const std::int32_t nCount = std::max(nBytes, 0);
    if (!m_Input.Append(pBuffer, static_cast<std::uint32_t>(nCount))) {
        ForgetStaleErrors();
        return Fail("Taking ciphertext");
    }
    if (m_Verbose)
        TraceCiphertext("OmbryZephCore::ZephOpenSSLConnection::inject_ciphertext", pBuffer, nCount);
    return ContinueInitIfNecessary() < 0 ? -1 : nCount;
}

std::int32_t ZephOpenSSLConnection::extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) {
    if (m_Failed) return -1;
    if (!m_Handshaking && Pending(m_Output) == 0) return 0;  // nearly always
    return Extract(pBuffer, nBytes);
}

// Apart, so that asking in vain saves no registers.
[[gnu::noinline]] std::int32_t ZephOpenSSLConnection::Extract(std::uint8_t* pBuffer, std::int32_t nBytes) {
    const std::int32_t nCount = TakeFrom(m_Output, pBuffer, nBytes);
    if (m_Verbose)
        TraceCiphertext("OmbryZephCore::ZephOpenSSLConnection::extract_ciphertext", pBuffer, nCount);
    return ContinueInitIfNecessary() < 0 ? -1 : nCount;
}

std::int32_t ZephOpenSSLConnection::read_plaintext(std::uint8_t* pBuffer, std::int32_t nBytes) {
    // The pump asks in every round, and ahead of every answer.
    if (m_InputUsedUp && !m_Handshaking && !m_Failed && !m_PeerClosed && nBytes > 0) {
        m_NeedInput = true;
        return 0;
    }
    const std::int32_t ready = ContinueInitIfNecessary();
    if (ready < 0) return ready;
    // Data that a renegotiation was stopped by is under the keys before it, which were accepted.
    if (ready == 0 && SSL_pending(m_Session.get()) == 0) return 0;
    if (m_PeerClosed || nBytes <= 0) return 0;
    const std::int32_t nCount = Read(pBuffer, nBytes);
    if (m_Verbose && nCount > 0) TracePlaintext(pBuffer, nCount);
    return nCount;
}

// A count, 0 when more input is needed or the peer has closed, or -1.
std::int32_t ZephOpenSSLConnection::Read(std::uint8_t* pBuffer, std::int32_t nBytes) {
    std::size_t nCount = 0;
    m_Input.WasAskedInVain();
    const int result = SSL_read_ex(m_Session.get(), pBuffer, static_cast<std::size_t>(nBytes), &nCount);
    if (SSL_in_init(m_Session.get())) m_Handshaking = true;
    if (result == 1) {
        m_InputUsedUp = m_HoldsNothing = !HoldsInput();
        return static_cast<std::int32_t>(nCount);
    }
    const int error = WhyNothingMoved();
    if (error == SSL_ERROR_WANT_READ) {
        m_NeedInput = m_InputUsedUp = true;
        return 0;
    }
    if (error == SSL_ERROR_ZERO_RETURN && SSL_is_init_finished(m_Session.get())) {
        m_PeerClosed = true;
        return 0;
    }
    return Fail("SSL_read_ex");
}

std::int32_t ZephOpenSSLConnection::write_plaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) {
    const std::int32_t ready = ContinueInitIfNecessary();
    if (ready <= 0) return ready;
    const std::int32_t nOffered = std::min(nBytes, OutputCap - Pending(m_Output));
    if (nOffered <= 0 || m_ShutdownSent) return 0;
    std::size_t nCount = 0;
    m_Input.WasAskedInVain();
    const int result = SSL_write_ex(m_Session.get(), pBuffer, static_cast<std::size_t>(nOffered), &nCount);
    if (SSL_in_init(m_Session.get())) m_Handshaking = true;
    if (result == 1) return static_cast<std::int32_t>(nCount);
    if (WhyNothingMoved() != SSL_ERROR_WANT_READ) return Fail("SSL_write_ex");
    m_NeedInput = true;
    return 0;
}

bool ZephOpenSSLConnection::IsOutputBlocked() {
    return Pending(m_Output) > 0;
}

std::int32_t ZephOpenSSLConnection::request_renegotiate() {
    const std::int32_t ready = ContinueInitIfNecessary();
    if (ready <= 0) return ready;
    if (m_ShutdownSent || SSL_version(m_Session.get()) >= TLS1_3_VERSION) return 0;
    ForgetStaleErrors();
    if (SSL_renegotiate(m_Session.get()) != 1) return Fail("SSL_renegotiate");
    m_Handshaking = true;
    return ContinueInitIfNecessary() < 0 ? -1 : 1;
}

std::int32_t ZephOpenSSLConnection::shutdown(bool bWaitForPeer) {
    if (m_Failed) return -1;
    m_WaitForPeer = bWaitForPeer;
    if (!m_ShutdownSent) {
        ForgetStaleErrors();
        if (m_Handshaking || SSL_in_init(m_Session.get())) {
            m_PeerClosed = true;  // a close cannot be sent yet, and none that arrived could be trusted
        } else if (SSL_shutdown(m_Session.get()) < 0) {
            return Fail("SSL_shutdown");
        }
        m_ShutdownSent = true;
    }
    if (bWaitForPeer && !m_PeerClosed && DrainUntilPeerCloses() < 0) return -1;
    return IsShutdownComplete() ? 1 : 0;
}

// Data that the peer sent before its close is decrypted and dropped: waiting with a second SSL_shutdown would
// fail on it.
std::int32_t ZephOpenSSLConnection::DrainUntilPeerCloses() {
    std::array<std::uint8_t, 4096> discarded{};
    std::int32_t nCount = 0;
    do {
        nCount = Read(discarded.data(), static_cast<std::int32_t>(discarded.size()));
    } while (nCount > 0);
    OPENSSL_cleanse(discarded.data(), discarded.size());
    return nCount;
}

std::int32_t ZephOpenSSLConnection::extract_unprocessed_ciphertext(std::uint8_t* pBuffer,
                                                                   std::int32_t nBytes) {
    return TakeFrom(m_Input, pBuffer, nBytes);
}

bool ZephOpenSSLConnection::HasUnread() {
    if (m_Failed || IsShuttingDown()) return true;
    if (!m_Established || !HoldsInput()) return false;
    // A close or a failure is found again, and acted on, by the next operation, if there is one.
    if (Look() != SSL_ERROR_WANT_READ) {
        ERR_clear_error();
        return true;
    }
    if (SSL_in_init(m_Session.get())) m_Handshaking = true;
    return !m_Handshaking && HoldsInput();
}

// The library keeps its two buffers where they hold anything.
void ZephOpenSSLConnection::ReleaseIdleMemory() {
    if (m_Session) SSL_free_buffers(m_Session.get());
    m_Input.ReleaseIdleMemory();
    m_Output.ReleaseIdleMemory();
}

// The library takes a record in two steps; between them it holds the header alone, and only its state says
// so.
bool ZephOpenSSLConnection::HoldsInput() const {
    if (m_HoldsNothing) return false;
    return Pending(m_Input) > 0 || SSL_has_pending(m_Session.get()) == 1 ||
           std::strcmp(SSL_rstate_string(m_Session.get()), "RB") == 0;
}

std::int32_t ZephOpenSSLConnection::Fail(const char* operation) {
    m_Failed = true;
    if (!m_Established) ForgetSessions();
    const long verification = m_Session ? SSL_get_verify_result(m_Session.get()) : X509_V_OK;
    if (m_Session && SSL_get_verify_mode(m_Session.get()) != SSL_VERIFY_NONE && verification != X509_V_OK) {
        LogCall(m_Logger, "OmbryZephCore::ZephOpenSSLConnection::Fail", 4, operation,
                " failed: ", TakeOpenSSLErrors,
                " (certificate: ", X509_verify_cert_error_string(verification), ")");
    } else {
        LogCall(m_Logger, "OmbryZephCore::ZephOpenSSLConnection::Fail", 4, operation,
                " failed: ", TakeOpenSSLErrors);
    }
    ERR_clear_error();
    return -1;
}

void ZephOpenSSLConnection::TraceCiphertext(const Ombry::LibraryLogger::Place& place,
                                            const std::uint8_t* pBuffer, std::int32_t nBytes) {
    if (nBytes <= 0) return;
    LogCall(m_Logger, place, 0, [&] { return Hexadecimal(pBuffer, nBytes); });
}

void ZephOpenSSLConnection::TracePlaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) {
    constexpr const char* Function = "OmbryZephCore::ZephOpenSSLConnection::read_plaintext";
    LogCall(m_Logger, Function, 0, "returning ", nBytes, " bytes of plaintext: '",
            std::string_view(reinterpret_cast<const char*>(pBuffer), static_cast<std::size_t>(nBytes)), "'");
    LogCall(m_Logger, Function, 0, SSL_pending(m_Session.get()),
            " unprocessed bytes remain in the plaintext buffer.");
    LogCall(m_Logger, Function, 0, Pending(m_Input), " unprocessed bytes remain in the ciphertext buffer.");
}

}  // namespace OmbryZephCore
