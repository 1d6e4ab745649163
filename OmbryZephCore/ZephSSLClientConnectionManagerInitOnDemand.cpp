#include "OmbryZephCore/ZephSSLClientConnectionManagerInitOnDemand.h"

#include "OmbryZephCore/ZephWindowsCertificateValidation.h"

#include <utility>

namespace OmbryZephCore {

void ZephSSLClientConnectionManagerInitOnDemand::Configure(
    const ZephSSLSettings& settings, const std::shared_ptr<Ombry::LibraryLogger::ILogger>& logger,
    bool bVerbose) {
    m_Manager.reset();
    m_Settings = settings;
    m_Logger = logger;
    m_Verbose = bVerbose;
    if (m_Settings.m_Role != ClientRole && m_Settings.m_Role != NoTlsRole) m_Settings.m_Role = ClientRole;
}

ZephSSLConnectionIf* ZephSSLClientConnectionManagerInitOnDemand::GetConnection() {
    if (!m_Manager && m_Settings.m_Role == ClientRole) MakeManager();
    return m_Manager ? m_Manager->GetConnection() : nullptr;
}

void ZephSSLClientConnectionManagerInitOnDemand::ReleaseConnection(ZephSSLConnectionIf* pConnection) {
    if (m_Manager) m_Manager->ReleaseConnection(pConnection);
}

// With mode 0 there is neither the platform's validation nor a validator: nothing checks the server, which is
// what that mode asks for.
void ZephSSLClientConnectionManagerInitOnDemand::MakeManager() {
    auto manager = ZephSSLManagerProvider().MakeManager(m_Logger, m_Verbose);
    if (!manager) return;
    ZephCertificateValidator validator;
    if (m_Settings.m_ValidationMode == ValidateByPublicKey) {
        validator = ZephWindowsCertificateValidation::CheckPublicKeyCallback(m_Settings.m_Certificate);
    }
    const bool bManualValidation = m_Settings.m_ValidationMode != ValidateByPlatform;
    if (manager->Initialize(m_Settings.m_TargetName, bManualValidation, validator) != 0) return;
    // Where no key is trusted, each connection is to see what the server shows it.
    if (validator) manager->SetSessionScope(m_Settings.m_SessionScope);
    m_Manager = std::move(manager);
}

}  // namespace OmbryZephCore
