#pragma once

#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephSSLConnectionIf.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "OmbryZephCore/ZephSSLSettings.h"

#include <memory>

namespace OmbryZephCore {

/// Delays everything TLS until the first session is asked for, so that a plain connection never touches the
/// TLS library. One thread at a time; the connections that it hands out must be given back before it is
/// configured anew or destroyed.
class ZephSSLClientConnectionManagerInitOnDemand : public ZephSSLConnectionManagerIf {
public:
    /// Forgets the manager made before. A role other than 1 or 3 counts as 1.
    void Configure(const ZephSSLSettings& settings,
                   const std::shared_ptr<Ombry::LibraryLogger::ILogger>& logger, bool bVerbose);

    /// Null for role 3, and whenever the engine cannot be initialised; then the next call tries again.
    ZephSSLConnectionIf* GetConnection() override;
    void ReleaseConnection(ZephSSLConnectionIf* pConnection) override;

private:
    void MakeManager();

    ZephSSLSettings m_Settings;
    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    bool m_Verbose = false;
    std::unique_ptr<ZephSSLInitializableManagerIf> m_Manager;
};

}  // namespace OmbryZephCore
