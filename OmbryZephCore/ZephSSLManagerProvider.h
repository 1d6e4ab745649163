#pragma once

#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephCertificateValidator.h"
#include "OmbryZephCore/ZephSSLConnectionIf.h"
#include "Platform/Current.h"

#include <cstdint>
#include <memory>
#include <string>

namespace OmbryZephCore {

/// A connection manager of one TLS engine, as whoever makes it sees it. One thread initialises it, before any
/// connection is asked for.
class ZephSSLInitializableManagerIf : public ZephSSLConnectionManagerIf {
public:
    /// Loads what the engine needs. `targetName`: the server's name or IP literal, may be empty.
    /// `bManualValidation`: the platform checks neither chain nor name; only `validator`, if there is one,
    /// decides. 0, or the platform's error; then no connection can be had.
    virtual std::uint32_t Initialize(const std::string& targetName, bool bManualValidation,
                                     const ZephCertificateValidator& validator) = 0;

    /// Connections may resume the TLS sessions of earlier ones of the same scope, a text that names all that
    /// they were asked for, the trusted key included. Without a scope none is resumed, nor by an engine that
    /// cannot.
    virtual void SetSessionScope(const std::string&) {}
};

/// Makes the managers of the platform's TLS engine, so that nothing above knows which engine runs. The
/// engine's own source defines the production one. Any thread may call it.
class ZephSSLManagerProviderIf {
public:
    virtual ~ZephSSLManagerProviderIf() = default;

    /// A manager that is not initialised yet; touches no TLS library.
    virtual std::unique_ptr<ZephSSLInitializableManagerIf> MakeManager(
        const std::shared_ptr<Ombry::LibraryLogger::ILogger>& logger, bool bVerbose) = 0;
};

/// The provider in force; tests replace it with `Platform::Testing::Replace<ZephSSLManagerProviderIf>`.
inline ZephSSLManagerProviderIf& ZephSSLManagerProvider() {
    return Ombry::Platform::Current<ZephSSLManagerProviderIf>();
}

}  // namespace OmbryZephCore
