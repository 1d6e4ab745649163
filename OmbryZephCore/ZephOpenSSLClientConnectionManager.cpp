#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"

#include "OmbryZephCore/ZephOpenSSLConnection.h"

#include <utility>

namespace OmbryZephCore {

ZephOpenSSLClientConnectionManager::ZephOpenSSLClientConnectionManager(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose)
    : m_Logger(std::move(logger)), m_Verbose(bVerbose), m_Context(m_Logger) {}

std::uint32_t ZephOpenSSLClientConnectionManager::Initialize(const std::string& targetName,
                                                             bool bManualValidation,
                                                             const ZephCertificateValidator& validator) {
    if (const std::uint32_t error = m_Context.Initialize(bManualValidation)) return error;
    m_TargetName = targetName;
    m_Validator = validator;
    return 0;
}

ZephSSLConnectionIf* ZephOpenSSLClientConnectionManager::GetConnection() {
    auto connection = std::make_unique<ZephOpenSSLConnection>(m_Logger);
    connection->SetVerbose(m_Verbose);
    if (connection->InitializeAsClient(m_Context, m_TargetName, m_SessionScope) != 0) return nullptr;
    connection->SetValidator(m_Validator);
    return connection.release();
}

void ZephOpenSSLClientConnectionManager::ReleaseConnection(ZephSSLConnectionIf* pConnection) {
    const std::unique_ptr<ZephSSLConnectionIf> taken(pConnection);
}

}  // namespace OmbryZephCore
