#include "OmbryZephCore/ZephSSLClientConnectionManagerInitOnDemand.h"

#include <utility>

#include "OmbryZephCore/ZephWindowsCertificateValidation.h"

namespace OmbryZephCore {
namespace {

constexpr std::int32_t ClientRole = 1;
constexpr std::int32_t NoTlsRole = 3;
constexpr std::int32_t PlatformValidation = 1;
constexpr std::int32_t PublicKeyValidation = 2;

}  // namespace

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
    if (m_Settings.m_ValidationMode == PublicKeyValidation) {
        validator = ZephWindowsCertificateValidation::CheckPublicKeyCallback(m_Settings.m_Certificate);
    }
    const bool bManualValidation = m_Settings.m_ValidationMode != PlatformValidation;
    if (manager->Initialize(m_Settings.m_TargetName, bManualValidation, validator) != 0) return;
    m_Manager = std::move(manager);
}

}  // namespace OmbryZephCore
