#pragma once

#include "OmbryZephCore/ZephSorrelConnectionParametersIf.h"

#include <cstdint>
#include <string>

namespace OmbryZephCore {

/// Roles of `ZephSSLSettings`.
inline constexpr std::int32_t ClientRole = 1;
inline constexpr std::int32_t NoTlsRole = 3;  ///< no TLS at all

/// How the TLS sessions of one connection are to be made.
struct ZephSSLSettings {
    std::string m_TargetName;  ///< server name or IP literal
    /// As `ZephCertificateValidation::m_Mode`.
    std::int32_t m_ValidationMode = ValidateByPlatform;
    /// For `ValidateByPublicKey`: Base64 text of the DER certificate whose key is trusted.
    std::string m_Certificate;
    std::int32_t m_Role = ClientRole;
    std::string m_Unused1;  ///< nothing reads it
    std::string m_Unused2;  ///< nothing reads it
    /// Of `ZephSSLInitializableManagerIf::SetSessionScope`; counts for `ValidateByPublicKey` alone.
    std::string m_SessionScope;
};

}  // namespace OmbryZephCore
