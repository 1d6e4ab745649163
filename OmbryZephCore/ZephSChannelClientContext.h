#pragma once

#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephSSPILoader.h"

#include <memory>

namespace OmbryZephCore {

/// The credentials of a TLS client, shared read-only by all connections of one manager. Owns the provider's
/// handle. One thread at a time.
class ZephSChannelClientContext {
public:
    explicit ZephSChannelClientContext(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephSChannelClientContext();
    ZephSChannelClientContext(const ZephSChannelClientContext&) = delete;
    ZephSChannelClientContext& operator=(const ZephSChannelClientContext&) = delete;

    /// Drops earlier credentials and acquires new ones. With `bManualValidation` the provider checks neither
    /// the server's chain nor its name. 0, the platform's error, or the provider's status.
    std::uint32_t Initialize(bool bManualValidation);

    /// Null if there are none. Valid until the next `Initialize`.
    Ombry::Platform::CredHandle* GetCredentials() { return m_HasCredentials ? &m_Credentials : nullptr; }

private:
    void CleanUp();

    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    Ombry::Platform::CredHandle m_Credentials;
    bool m_HasCredentials = false;
    ZephSSPILoader m_SSPI;
};

}  // namespace OmbryZephCore
