#pragma once

#include <cstdint>

namespace OmbryZephCore {

/// A TLS engine without I/O: ciphertext is injected and extracted, plaintext read and written. Counts are
/// bytes; a count below 0 is a fatal failure. One thread at a time.
class ZephSSLConnectionIf {
public:
    virtual ~ZephSSLConnectionIf() = default;
    virtual void SetVerbose(bool b) = 0;
    /// Decrypts from what was injected; 0 if nothing is ready.
    virtual std::int32_t read_plaintext(std::uint8_t* pBuffer, std::int32_t nBytes) = 0;
    virtual std::int32_t write_plaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) = 0;
    /// May accept less than offered.
    virtual std::int32_t inject_ciphertext(const std::uint8_t* pBuffer, std::int32_t nBytes) = 0;
    virtual std::int32_t extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) = 0;
    /// The engine cannot go on without more input.
    virtual bool WantsCiphertext() = 0;
    /// Output is waiting that did not fit.
    virtual bool IsOutputBlocked() = 0;
    /// 1 done, 0 not now, below 0 on a failure.
    virtual std::int32_t request_renegotiate() = 0;
    /// 1 only when complete, 0 while it must wait, below 0 on a failure.
    virtual std::int32_t shutdown(bool bWaitForPeer) = 0;
    virtual bool IsShutdownComplete() = 0;
    /// A close was seen or sent.
    virtual bool IsShuttingDown() = 0;
    /// After a shutdown: bytes that were injected and never consumed. Never below 0.
    virtual std::int32_t extract_unprocessed_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) = 0;
    /// Whether plaintext, or the beginning of a record that may hold some, was injected and not read; also
    /// once the session is of no further use. False during a handshake.
    virtual bool HasUnread() = 0;
    /// Gives back memory that is only needed while data flows; for a session that is likely to rest.
    virtual void ReleaseIdleMemory() {}
};

/// Makes engines and takes them back.
class ZephSSLConnectionManagerIf {
public:
    virtual ~ZephSSLConnectionManagerIf() = default;
    /// Null if none can be made. Owned by this manager; given back through `ReleaseConnection` while it
    /// lives.
    virtual ZephSSLConnectionIf* GetConnection() = 0;
    virtual void ReleaseConnection(ZephSSLConnectionIf* pConnection) = 0;
};

}  // namespace OmbryZephCore
