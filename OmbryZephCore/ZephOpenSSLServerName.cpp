#include "OmbryZephCore/ZephOpenSSLServerName.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <memory>

namespace OmbryZephCore {
namespace {

constexpr std::size_t LongestHostName = 255;

bool IsAddress(const std::string& text) {
    const std::unique_ptr<ASN1_OCTET_STRING, decltype(&ASN1_OCTET_STRING_free)> address(
        a2i_IPADDRESS(text.c_str()), ASN1_OCTET_STRING_free);
    ERR_clear_error();
    return address != nullptr;
}

}  // namespace

ZephOpenSSLServerName::ZephOpenSSLServerName(const std::string& targetName) : m_Text(targetName) {
    if (m_Text.size() >= 2 && m_Text.front() == '[' && m_Text.back() == ']') {
        m_Text = m_Text.substr(1, m_Text.size() - 2);
    }
    if (m_Text.ends_with('.')) m_Text.pop_back();
    const std::string withoutZone = m_Text.substr(0, m_Text.find('%'));
    m_IsAddress = IsAddress(withoutZone);
    if (m_IsAddress) m_Text = withoutZone;
}

bool ZephOpenSSLServerName::CanBeSent() const {
    return !m_IsAddress && !m_Text.empty() && m_Text.size() <= LongestHostName &&
           m_Text.find('\0') == std::string::npos;
}

bool ZephOpenSSLServerName::CanBeChecked() const {
    return !m_Text.empty() && m_Text.front() != '.' && m_Text.find('\0') == std::string::npos;
}

}  // namespace OmbryZephCore
