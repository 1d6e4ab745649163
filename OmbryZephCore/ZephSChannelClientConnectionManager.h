#pragma once

#include "OmbryZephCore/ZephSChannelClientContext.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"

namespace OmbryZephCore {

/// Makes TLS client connections on the platform's security support provider; they share one set of
/// credentials. One thread initialises it, before any connection is asked for.
class ZephSChannelClientConnectionManager : public ZephSSLInitializableManagerIf {
public:
    ZephSChannelClientConnectionManager(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose);

    /// With `bManualValidation` off the provider checks the server's chain, and its name against
    /// `targetName`; an empty name gives it none.
    std::uint32_t Initialize(const std::string& targetName, bool bManualValidation,
                             const ZephCertificateValidator& validator) override;
    ZephSSLConnectionIf* GetConnection() override;
    void ReleaseConnection(ZephSSLConnectionIf* pConnection) override;

private:
    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    const bool m_Verbose;
    ZephSChannelClientContext m_Context;
    std::string m_TargetName;
    ZephCertificateValidator m_Validator;
};

}  // namespace OmbryZephCore
