#pragma once

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephCertificateValidator.h"
#include "OmbryZephCore/ZephOpenSSLBuffer.h"
#include "OmbryZephCore/ZephSSLConnectionIf.h"

#include <cstdint>
#include <memory>
#include <string>

struct ssl_session_st;
struct ssl_st;

namespace OmbryZephCore {

class ZephOpenSSLClientContext;

/// One TLS client session between two memory buffers. The handshake is carried on by every operation, so that
/// a caller which only injects and extracts gets it done. A failure is final: every later operation but
/// `extract_unprocessed_ciphertext` fails too, and an alert that the failure produced is not handed out. One
/// thread at a time.
class ZephOpenSSLConnection : public ZephSSLConnectionIf {
public:
    explicit ZephOpenSSLConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephOpenSSLConnection() override;
    ZephOpenSSLConnection(const ZephOpenSSLConnection&) = delete;
    ZephOpenSSLConnection& operator=(const ZephOpenSSLConnection&) = delete;

    /// Drops any earlier session and starts a new one, whose ClientHello can be extracted at once.
    /// `targetName`: as `ZephOpenSSLServerName` takes it; where the context verifies servers it must not be
    /// empty. `sessionScope`: under which `ZephOpenSSLSessions` keeps what this session leaves behind for
    /// later ones, and has what this one may resume; empty for neither, as where the context verifies
    /// servers. 0 or -1.
    std::int32_t InitializeAsClient(const ZephOpenSSLClientContext& context, const std::string& targetName,
                                    const std::string& sessionScope = {});

    /// Asked at the end of every handshake; to be set before any ciphertext is injected.
    void SetValidator(const ZephCertificateValidator& validator) { m_Validator = validator; }

    /// For the library alone: a session of `connection` can be resumed from now on. Always 0: it was not
    /// taken.
    static int NoteNewSession(ssl_st* connection, ssl_session_st* session);

    void SetVerbose(bool b) override { m_Verbose = b; }
    std::int32_t read_plaintext(std::uint8_t* pBuffer, std::int32_t nBytes) override;
    /// Accepts nothing while 16384 bytes of ciphertext wait to be extracted, and at most what is left up to
    /// that.
    std::int32_t write_plaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) override;
    std::int32_t inject_ciphertext(const std::uint8_t* pBuffer, std::int32_t nBytes) override;
    std::int32_t extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override;
    bool WantsCiphertext() override { return m_NeedInput; }
    /// Whether any ciphertext waits to be extracted.
    bool IsOutputBlocked() override;
    /// 0 under TLS 1.3, which has no renegotiation.
    std::int32_t request_renegotiate() override;
    std::int32_t shutdown(bool bWaitForPeer) override;
    bool IsShutdownComplete() override { return m_ShutdownSent && (m_PeerClosed || !m_WaitForPeer); }
    bool IsShuttingDown() override { return m_ShutdownSent || m_PeerClosed; }
    std::int32_t extract_unprocessed_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override;
    /// Records that are no data (tickets, key updates, a HelloRequest) are acted on first.
    bool HasUnread() override;
    void ReleaseIdleMemory() override;

private:
    struct SessionDeleter {
        void operator()(ssl_st* session) const;
    };

    void Clear();
    bool MakeSession(const ZephOpenSSLClientContext& context);
    void OfferKeptSession();
    void KeepSession();
    void ForgetSessions();
    static void NoteEvent(const ssl_st* session, int where, int result);
    bool SetServerName(const std::string& targetName, bool bVerify);
    std::int32_t ContinueInitIfNecessary();
    [[gnu::cold]] std::int32_t ContinueRenegotiation();
    int Look();
    int WhyNothingMoved();
    std::int32_t ValidateServer();
    std::int32_t Extract(std::uint8_t* pBuffer, std::int32_t nBytes);
    std::int32_t Read(std::uint8_t* pBuffer, std::int32_t nBytes);
    std::int32_t DrainUntilPeerCloses();
    bool HoldsInput() const;
    [[gnu::cold]] std::int32_t Fail(const char* operation);
    [[gnu::cold]] void TraceCiphertext(const Ombry::LibraryLogger::Place& place, const std::uint8_t* pBuffer,
                                       std::int32_t nBytes);
    [[gnu::cold]] void TracePlaintext(const std::uint8_t* pBuffer, std::int32_t nBytes);

    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    // Ahead of the session, which uses them to its end.
    ZephOpenSSLBuffer m_Input;   // ciphertext injected and not consumed
    ZephOpenSSLBuffer m_Output;  // ciphertext not extracted
    std::unique_ptr<ssl_st, SessionDeleter> m_Session;
    std::string m_SessionScope;
    bool m_NeedInput = false;
    bool m_InputUsedUp = false;   // a read found nothing more, and nothing was injected since
    bool m_HoldsNothing = false;  // the last read left nothing, and nothing was injected since
    bool m_Failed = false;
    bool m_Handshaking = false;
    bool m_Established = false;   // the first handshake is over
    bool m_Unjudged = false;      // a handshake has ended, and ValidateServer was not asked since
    bool m_SessionIsNew = false;  // there is a session to be kept once the server is accepted
    bool m_CloseCame = false;     // the latest alert of the peer was its close
    bool m_PeerClosed = false;
    bool m_ShutdownSent = false;
    bool m_Verbose = false;
    ZephCertificateValidator m_Validator;
    bool m_WaitForPeer = false;
};

}  // namespace OmbryZephCore
