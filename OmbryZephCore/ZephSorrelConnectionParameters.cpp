#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

#include <compare>
#include <tuple>
#include <utility>

namespace OmbryZephCore {

ZephSorrelConnectionParameters::ZephSorrelConnectionParameters(std::string host, std::uint16_t nPort)
    : m_Host(std::move(host)), m_Port(nPort) {}

ZephSorrelConnectionParameters::ZephSorrelConnectionParameters(const ZephSorrelConnectionParametersIf& other)
    : m_Host(other.GetHost()),
      m_Port(other.GetPort()),
      m_UseSSL(other.GetUseSSL()),
      m_ConnectTimeout(other.GetConnectTimeout()),
      m_BindAddress(other.GetBindAddress()),
      m_BindPort(other.GetBindPort()),
      m_CertificateValidation(other.GetCertificateValidation()) {}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::operator=(
    const ZephSorrelConnectionParameters& other) {
    return *this = static_cast<const ZephSorrelConnectionParametersIf&>(other);
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::operator=(
    const ZephSorrelConnectionParametersIf& other) {
    if (this == &other) return *this;
    m_Host = other.GetHost();
    m_Port = other.GetPort();
    m_UseSSL = other.GetUseSSL();
    m_ConnectTimeout = other.GetConnectTimeout();
    m_BindAddress = other.GetBindAddress();
    m_BindPort = other.GetBindPort();
    m_CertificateValidation = other.GetCertificateValidation();
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetUseSSL(bool bUseSSL) {
    m_UseSSL = bUseSSL;
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetConnectTimeout(std::uint32_t nSeconds) {
    m_ConnectTimeout = nSeconds;
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetBindAddress(const std::string& address) {
    m_BindAddress = address;
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetBindPort(std::uint16_t nPort) {
    m_BindPort = nPort;
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetHost(const std::string& host) {
    m_Host = host;
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetCertificateValidation(
    const ZephCertificateValidation& rule) {
    m_CertificateValidation = rule;
    return *this;
}

ZephSorrelConnectionParameters& ZephSorrelConnectionParameters::SetCertificateValidation(
    ZephCertificateValidation&& rule) {
    m_CertificateValidation = std::move(rule);
    return *this;
}

// Only one mode looks at the certificate; with any other, different texts must not split a pool.
bool operator<(const ZephSorrelConnectionParameters& left, const ZephSorrelConnectionParameters& right) {
    const auto order =
        std::tie(left.m_Host, left.m_Port, left.m_UseSSL, left.m_ConnectTimeout, left.m_BindAddress,
                 left.m_BindPort) <=> std::tie(right.m_Host, right.m_Port, right.m_UseSSL,
                                               right.m_ConnectTimeout, right.m_BindAddress, right.m_BindPort);
    if (std::is_neq(order)) return std::is_lt(order);

    const ZephCertificateValidation& leftRule = left.m_CertificateValidation;
    const ZephCertificateValidation& rightRule = right.m_CertificateValidation;
    if (leftRule.m_Mode != rightRule.m_Mode) return leftRule.m_Mode < rightRule.m_Mode;
    return leftRule.m_Mode == ValidateByPublicKey && leftRule.m_Certificate < rightRule.m_Certificate;
}

bool operator==(const ZephSorrelConnectionParameters& left, const ZephSorrelConnectionParameters& right) {
    const ZephCertificateValidation& leftRule = left.m_CertificateValidation;
    const ZephCertificateValidation& rightRule = right.m_CertificateValidation;
    return left.m_Port == right.m_Port && left.m_UseSSL == right.m_UseSSL &&
           left.m_ConnectTimeout == right.m_ConnectTimeout && left.m_BindPort == right.m_BindPort &&
           leftRule.m_Mode == rightRule.m_Mode && left.m_Host == right.m_Host &&
           left.m_BindAddress == right.m_BindAddress &&
           (leftRule.m_Mode != ValidateByPublicKey || leftRule.m_Certificate == rightRule.m_Certificate);
}

}  // namespace OmbryZephCore
