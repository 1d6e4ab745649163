#include "OmbryZephCore/ZephSChannelClientConnectionManager.h"

#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSChannelConnection.h"

namespace OmbryZephCore {

ZephSChannelClientConnectionManager::ZephSChannelClientConnectionManager(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose)
    : m_Logger(logger), m_Verbose(bVerbose), m_Context(logger) {}

std::uint32_t ZephSChannelClientConnectionManager::Initialize(const std::string& targetName,
                                                              bool bManualValidation,
                                                              const ZephCertificateValidator& validator) {
    if (const std::uint32_t nResult = m_Context.Initialize(bManualValidation)) return nResult;
    m_TargetName = targetName;
    m_Validator = validator;
    return eRC_Success;
}

ZephSSLConnectionIf* ZephSChannelClientConnectionManager::GetConnection() {
    auto connection = std::make_unique<ZephSChannelConnection>(m_Logger);
    connection->SetVerbose(m_Verbose);
    const char* pTargetName = m_TargetName.empty() ? nullptr : m_TargetName.c_str();
    if (connection->InitializeAsClient(m_Context.GetCredentials(), pTargetName) != 0) return nullptr;
    connection->SetValidator(m_Validator);
    return connection.release();
}

void ZephSChannelClientConnectionManager::ReleaseConnection(ZephSSLConnectionIf* pConnection) {
    delete pConnection;
}

}  // namespace OmbryZephCore
