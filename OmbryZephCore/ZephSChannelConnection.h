#pragma once

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephCertificateValidator.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephSSLConnectionIf.h"
#include "OmbryZephCore/ZephSSPILoader.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace OmbryZephCore {

/// One TLS session on the platform's security support provider. Knows no socket: its owner moves ciphertext
/// in and out. Every failure is -1, and the session is then of no further use. One thread at a time.
class ZephSChannelConnection : public ZephSSLConnectionIf {
public:
    explicit ZephSChannelConnection(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephSChannelConnection() override;
    ZephSChannelConnection(const ZephSChannelConnection&) = delete;
    ZephSChannelConnection& operator=(const ZephSChannelConnection&) = delete;

    /// Ends any earlier session and starts one as a client: the first flight waits to be extracted.
    /// `pCredentials` is not owned and must outlive the session; null for none. `pTargetName`: the server's
    /// name for the provider, null for none. 0 or -1.
    std::int32_t InitializeAsClient(Ombry::Platform::CredHandle* pCredentials, const char* pTargetName);

    /// The same as a server, which waits for the client's first flight.
    std::int32_t InitializeAsServer(Ombry::Platform::CredHandle* pCredentials);

    /// Loads the provider and gives both buffers room for its longest token. 0 or -1.
    std::int32_t DoCommonInitializationTasks();

    /// Carries a handshake on that is in progress: 1 when the session is ready, 0 when it must wait, -1 on a
    /// failure.
    std::int32_t ContinueInitIfNecessary();

    /// Asked at the end of every handshake; empty asks nobody.
    void SetValidator(const ZephCertificateValidator& validator) { m_Validator = validator; }

    /// Traces every byte at level 0, decrypted ones too: never to be on in production.
    void SetVerbose(bool b) override { m_Verbose = b; }
    std::int32_t read_plaintext(std::uint8_t* pBuffer, std::int32_t nBytes) override;
    std::int32_t write_plaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) override;
    std::int32_t inject_ciphertext(const std::uint8_t* pBuffer, std::int32_t nBytes) override;
    std::int32_t extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override;
    bool WantsCiphertext() override { return m_NeedInput; }
    bool IsOutputBlocked() override { return m_OutputBlocked; }
    std::int32_t request_renegotiate() override;
    std::int32_t shutdown(bool bWaitForPeer) override;
    bool IsShutdownComplete() override { return m_ShutdownSent && (m_PeerClosed || !m_WaitForPeer); }
    bool IsShuttingDown() override { return m_ShutdownSent || m_PeerClosed; }
    std::int32_t extract_unprocessed_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override;
    bool HasUnread() override { return IsShuttingDown() || m_Refused || (!m_Handshaking && m_ReadFill != 0); }

private:
    // Values of m_Role. ZephSSLSettings numbers its roles differently.
    static constexpr std::uint32_t RoleServer = 1;
    static constexpr std::uint32_t RoleClient = 2;

    /// What a step that may end an operation decided: its result, or nothing to go on.
    using Outcome = std::optional<std::int32_t>;

    /// One call of the provider that consumes input and makes a token. It refers to itself: never moved.
    struct TokenExchange {
        TokenExchange() = default;
        TokenExchange(const TokenExchange&) = delete;
        TokenExchange& operator=(const TokenExchange&) = delete;

        std::array<Ombry::Platform::SecBuffer, 2> input;
        Ombry::Platform::SecBufferDesc inputDesc{Ombry::Platform::SecBufferVersion, 2, input.data()};
        std::uint32_t nOffered = 0;
        Ombry::Platform::SecBuffer output;
        Ombry::Platform::SecBufferDesc outputDesc{Ombry::Platform::SecBufferVersion, 1, &output};
        std::uint32_t nRoom = 0;
    };
    /// What `DecryptMessage` made of the input: null where it made nothing of the kind.
    struct DecryptedRecord {
        const Ombry::Platform::SecBuffer* data = nullptr;
        const Ombry::Platform::SecBuffer* extra = nullptr;
    };

    // Life and provider calls: ZephSChannelConnection.cpp
    void CleanUp();
    bool EnsureLength(ZephIOBuffer& buffer, std::uint64_t nLength);
    bool HasProvider() const { return m_SSPI.GetFunctions() != nullptr; }
    const char* StepName() const;
    std::uint32_t StepFlags() const;
    void OfferInput(TokenExchange& exchange, std::uint32_t nOffered);
    void OfferOutput(TokenExchange& exchange);
    Ombry::Platform::SECURITY_STATUS DriveContext(TokenExchange& exchange, bool bWithInput,
                                                  std::uint32_t nFlags);
    void AddToken(const TokenExchange& exchange);
    static const Ombry::Platform::SecBuffer* FindExtra(const TokenExchange& exchange);
    void KeepTail(std::uint32_t nPosition, std::uint32_t nCount);

    // Handshake: ZephSChannelHandshake.cpp
    std::int32_t StartSession(std::uint32_t nRole, Ombry::Platform::CredHandle* pCredentials,
                              const char* pTargetName);
    std::int32_t FinishFirstStep(TokenExchange& exchange, Ombry::Platform::SECURITY_STATUS nStatus);
    bool CompleteToken(TokenExchange& exchange, const Ombry::LibraryLogger::Place& place);
    Outcome ExchangeTokens(TokenExchange& exchange, Ombry::Platform::SECURITY_STATUS& nStatus);
    Outcome JudgeStep(Ombry::Platform::SECURITY_STATUS nStatus);
    bool ConsumeStepInput(const TokenExchange& exchange);
    std::int32_t ActOnStep(TokenExchange& exchange, Ombry::Platform::SECURITY_STATUS nStatus);
    bool FinishHandshake();
    bool CheckPeerCertificate();
    bool PrepareStream();

    // Data: ZephSChannelData.cpp
    Outcome DecryptNextRecord();
    Outcome ActOnRecord(const DecryptedRecord& record);
    std::int32_t ActOnPeerClose(const Ombry::Platform::SecBuffer* pExtra, const char* reason);
    std::int32_t ActOnRenegotiation(const Ombry::Platform::SecBuffer* pExtra);
    void KeepExtra(const Ombry::Platform::SecBuffer* pExtra, const char* reason);
    bool TakePlaintext(const Ombry::Platform::SecBuffer& data);
    std::int32_t DeliverPlaintext(std::uint8_t* pBuffer, std::uint32_t nBytes);
    void TraceCiphertext(const Ombry::LibraryLogger::Place& place, const std::uint8_t* pBytes,
                         std::uint32_t nBytes);

    // Shutdown: ZephSChannelShutdown.cpp
    Outcome SendClose();
    std::int32_t AwaitPeerClose();
    Outcome OfferForClose(std::uint32_t& nOffered);
    Outcome OfferOneMore(std::uint32_t& nOffered);
    std::uint32_t DropOffered(const TokenExchange& exchange);

    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    std::uint32_t m_Role = RoleClient;
    Ombry::Platform::CredHandle* m_Credentials = nullptr;
    ZephSSPILoader m_SSPI;
    ZephIOBuffer m_ReadBuffer;
    ZephIOBuffer m_WriteBuffer;
    std::uint32_t m_ReadFill = 0;
    std::uint32_t m_WriteFill = 0;
    std::uint32_t m_PlaintextLength = 0;  ///< decrypted bytes at the front of m_ReadBuffer; <= m_ReadFill
    Ombry::Platform::CtxtHandle m_Context;
    Ombry::Platform::SecPkgContext_StreamSizes m_StreamSizes;
    std::uint32_t m_ContextAttributes = 0;
    bool m_NeedInput = false;
    bool m_OutputBlocked = false;
    bool m_Handshaking = false;
    bool m_Renegotiating = false;
    bool m_PeerClosed = false;
    bool m_ShutdownSent = false;
    bool m_ContextValid = false;
    std::optional<std::string> m_TargetName;
    bool m_Verbose = false;
    ZephCertificateValidator m_Validator;
    bool m_WaitForPeer = false;
    /// The end of a handshake was refused: the provider would go on with the session, and nothing may.
    bool m_Refused = false;
};

}  // namespace OmbryZephCore
