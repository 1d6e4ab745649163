#pragma once

#include <cstdint>
#include <string>

namespace OmbryZephCore {

/// Modes of `ZephCertificateValidation`.
/// @{
inline constexpr std::int32_t ValidateNothing = 0;
inline constexpr std::int32_t ValidateByPlatform = 1;
inline constexpr std::int32_t ValidateByPublicKey = 2;
/// @}

/// The rule by which a server's certificate is accepted. Modes: 0 no validation at all, 1 the platform's own
/// validation, 2 the server's public key must equal that of `m_Certificate`, Base64 text of a DER
/// certificate.
struct ZephCertificateValidation {
    std::int32_t m_Mode = ValidateByPlatform;  ///< one of the three
    std::string m_Certificate;                 ///< for mode 2; any other passes it over
};

/// Where and how to connect. Setters return the object itself, so that calls chain. Time-outs are seconds.
class ZephSorrelConnectionParametersIf {
public:
    virtual ~ZephSorrelConnectionParametersIf() = default;
    /// Whether TLS is spoken.
    virtual bool GetUseSSL() const = 0;
    /// False by default.
    virtual ZephSorrelConnectionParametersIf& SetUseSSL(bool bUseSSL) = 0;
    /// What `SetConnectTimeout` was given.
    virtual std::uint32_t GetConnectTimeout() const = 0;
    /// How long each address of the host may take; 3 seconds by default. With 0 a connect must succeed at
    /// once.
    virtual ZephSorrelConnectionParametersIf& SetConnectTimeout(std::uint32_t nSeconds) = 0;
    /// What `SetBindAddress` was given.
    virtual std::string GetBindAddress() const = 0;
    /// The address of this machine to connect from; empty, as by default, leaves it to the system.
    virtual ZephSorrelConnectionParametersIf& SetBindAddress(const std::string& address) = 0;
    /// What `SetBindPort` was given.
    virtual std::uint16_t GetBindPort() const = 0;
    /// The port to connect from; 0, as by default, leaves it to the system. Without an address to connect
    /// from it is a port of the loopback address, from which only this machine is reached.
    virtual ZephSorrelConnectionParametersIf& SetBindPort(std::uint16_t nPort) = 0;
    /// A name or a numeric address, without brackets. Empty, as by default, a connect fails at once.
    virtual ZephSorrelConnectionParametersIf& SetHost(const std::string& host) = 0;
    /// The rule for the server's certificate.
    virtual ZephCertificateValidation GetCertificateValidation() const = 0;
    /// By the platform, by default. Mode 0 is for a first contact alone: whoever answers is believed.
    virtual ZephSorrelConnectionParametersIf& SetCertificateValidation(
        const ZephCertificateValidation& rule) = 0;
    /// What `SetHost` was given.
    virtual std::string GetHost() const = 0;
    /// Fixed when the object is made.
    virtual std::uint16_t GetPort() const = 0;
};

}  // namespace OmbryZephCore
