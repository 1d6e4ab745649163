#pragma once

#include "OmbryZephCore/ZephSorrelConnectionParametersIf.h"

namespace OmbryZephCore {

/// Where and how to connect: a value, and the key of a connection pool. The port is fixed at construction.
class ZephSorrelConnectionParameters : public ZephSorrelConnectionParametersIf {
public:
    ZephSorrelConnectionParameters() : ZephSorrelConnectionParameters(std::string(), 0) {}
    /// The rest has the defaults that the setters name.
    ZephSorrelConnectionParameters(std::string host, std::uint16_t nPort);
    /// A copy of all fields.
    explicit ZephSorrelConnectionParameters(const ZephSorrelConnectionParametersIf& other);
    /// A copy of all fields.
    ZephSorrelConnectionParameters(const ZephSorrelConnectionParameters& other) = default;
    /// Takes over all fields.
    ZephSorrelConnectionParameters(ZephSorrelConnectionParameters&& other) = default;
    /// All fields, the port too.
    ZephSorrelConnectionParameters& operator=(const ZephSorrelConnectionParameters& other);
    /// All fields, the port too.
    ZephSorrelConnectionParameters& operator=(const ZephSorrelConnectionParametersIf& other);

    bool GetUseSSL() const override { return m_UseSSL; }
    ZephSorrelConnectionParameters& SetUseSSL(bool bUseSSL) override;
    std::uint32_t GetConnectTimeout() const override { return m_ConnectTimeout; }
    ZephSorrelConnectionParameters& SetConnectTimeout(std::uint32_t nSeconds) override;
    std::string GetBindAddress() const override { return m_BindAddress; }
    ZephSorrelConnectionParameters& SetBindAddress(const std::string& address) override;
    std::uint16_t GetBindPort() const override { return m_BindPort; }
    ZephSorrelConnectionParameters& SetBindPort(std::uint16_t nPort) override;
    ZephSorrelConnectionParameters& SetHost(const std::string& host) override;
    ZephCertificateValidation GetCertificateValidation() const override { return m_CertificateValidation; }
    ZephSorrelConnectionParameters& SetCertificateValidation(const ZephCertificateValidation& rule) override;
    /// The same, for a rule that nobody needs any more.
    ZephSorrelConnectionParameters& SetCertificateValidation(ZephCertificateValidation&& rule);
    std::string GetHost() const override { return m_Host; }
    std::uint16_t GetPort() const override { return m_Port; }

    /// Strict weak order over all fields; certificate texts take part only when both modes are 2.
    friend bool operator<(const ZephSorrelConnectionParameters& left,
                          const ZephSorrelConnectionParameters& right);
    /// Whether neither comes before the other.
    friend bool operator==(const ZephSorrelConnectionParameters& left,
                           const ZephSorrelConnectionParameters& right);

private:
    std::string m_Host;
    std::uint16_t m_Port;
    bool m_UseSSL = false;
    std::uint32_t m_ConnectTimeout = 3;
    std::string m_BindAddress;
    std::uint16_t m_BindPort = 0;
    ZephCertificateValidation m_CertificateValidation;
};

}  // namespace OmbryZephCore
