#pragma once

#include "LibraryLogger/ILogger.h"

#include <cstdint>
#include <memory>
#include <string>

struct ssl_ctx_st;

namespace OmbryZephCore {

/// What all client sessions of one kind share: protocols, cipher suites, options and, where the platform's
/// own validation is asked for, the certificate authorities. There is one such set in the process for each of
/// the two kinds, made when it is first needed, since parsing the authorities costs more than many
/// handshakes. Any thread may initialise a context of its own; afterwards it is only read.
class ZephOpenSSLClientContext {
public:
    explicit ZephOpenSSLClientContext(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);

    /// `bManualValidation`: sessions check neither chain nor name, and no authority is loaded. 0, or the
    /// error number of the TLS library; then there is no context.
    std::uint32_t Initialize(bool bManualValidation);

    /// Null until initialised; valid while this object lives.
    ssl_ctx_st* Get() const { return m_Context.get(); }

    /// Whether sessions check chain and name.
    bool VerifiesServer() const { return m_VerifiesServer; }

    /// For tests: sessions initialised from now on trust the authorities of this PEM file in place of the
    /// platform's; an empty name goes back to those. Either way the shared context is made anew.
    static void ReplaceAuthorities(const std::string& pemFile);

private:
    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    std::shared_ptr<ssl_ctx_st> m_Context;
    bool m_VerifiesServer = false;
};

}  // namespace OmbryZephCore
