#pragma once

#include <cstdint>
#include <string>

namespace OmbryZephCore {

/// How the TLS sessions of one connection are to be made.
struct ZephSSLSettings {
    std::string m_TargetName;           ///< server name or IP literal
    std::int32_t m_ValidationMode = 1;  ///< as `ZephCertificateValidation::m_Mode`
    std::string m_Certificate;          ///< mode 2: Base64 text of the DER certificate whose key is trusted
    std::int32_t m_Role = 1;            ///< 1: client; 3: no TLS at all
    std::string m_Unused1;              ///< nothing reads it
    std::string m_Unused2;              ///< nothing reads it
};

}  // namespace OmbryZephCore
