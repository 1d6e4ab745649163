#pragma once

#include <cstdint>
#include <string>

namespace OmbryZephCore {

/// Modes of `ZephCertificateValidation`.
inline constexpr std::int32_t ValidateNothing = 0;
inline constexpr std::int32_t ValidateByPlatform = 1;
inline constexpr std::int32_t ValidateByPublicKey = 2;

/// The rule by which a server's certificate is accepted. Modes: 0 no validation at all, 1 the platform's own
/// validation, 2 the server's public key must equal that of `m_Certificate`, Base64 text of a DER
/// certificate.
struct ZephCertificateValidation {
    std::int32_t m_Mode = ValidateByPlatform;
    std::string m_Certificate;
};

/// Where and how to connect. Setters return the object itself, so that calls chain. Time-outs are seconds.
class ZephSorrelConnectionParametersIf {
public:
    virtual ~ZephSorrelConnectionParametersIf() = default;
    virtual bool GetUseSSL() const = 0;
    virtual ZephSorrelConnectionParametersIf& SetUseSSL(bool bUseSSL) = 0;
    virtual std::uint32_t GetConnectTimeout() const = 0;
    virtual ZephSorrelConnectionParametersIf& SetConnectTimeout(std::uint32_t nSeconds) = 0;
    virtual std::string GetBindAddress() const = 0;
    virtual ZephSorrelConnectionParametersIf& SetBindAddress(const std::string& address) = 0;
    virtual std::uint16_t GetBindPort() const = 0;
    virtual ZephSorrelConnectionParametersIf& SetBindPort(std::uint16_t nPort) = 0;
    virtual ZephSorrelConnectionParametersIf& SetHost(const std::string& host) = 0;
    virtual ZephCertificateValidation GetCertificateValidation() const = 0;
    virtual ZephSorrelConnectionParametersIf& SetCertificateValidation(
        const ZephCertificateValidation& rule) = 0;
    virtual std::string GetHost() const = 0;
    virtual std::uint16_t GetPort() const = 0;
};

}  // namespace OmbryZephCore
