#pragma once

#include "OmbryZephCore/ZephOpenSSLClientContext.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"

#include <memory>
#include <string>

namespace OmbryZephCore {

/// Makes client sessions over OpenSSL. One thread at a time. A session that it handed out does not need the
/// manager to live on.
class ZephOpenSSLClientConnectionManager : public ZephSSLInitializableManagerIf {
public:
    ZephOpenSSLClientConnectionManager(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose);

    std::uint32_t Initialize(const std::string& targetName, bool bManualValidation,
                             const ZephCertificateValidator& validator) override;
    void SetSessionScope(const std::string& scope) override { m_SessionScope = scope; }
    /// Null before `Initialize` succeeded, and without manual validation for a target name that no
    /// certificate can be checked against.
    ZephSSLConnectionIf* GetConnection() override;
    void ReleaseConnection(ZephSSLConnectionIf* pConnection) override;

private:
    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    bool m_Verbose;
    ZephOpenSSLClientContext m_Context;
    std::string m_TargetName;
    std::string m_SessionScope;
    ZephCertificateValidator m_Validator;
};

}  // namespace OmbryZephCore
