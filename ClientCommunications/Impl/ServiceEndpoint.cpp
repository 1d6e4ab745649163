#include "ClientCommunications/Impl/ServiceEndpoint.h"

#include "OmbryZephCore/ZephUrl.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>

namespace Ombry::ClientCommunications {

std::uint16_t ParsePort(const std::string& text) {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error == std::errc() && stop == end) return port;  // as nearly always
    constexpr long long lowest = std::numeric_limits<std::int32_t>::min();
    constexpr long long highest = std::numeric_limits<std::int32_t>::max();
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    return static_cast<std::uint16_t>(std::clamp(value, lowest, highest) & 0xffff);
}

ServiceEndpoint::ServiceEndpoint(std::shared_ptr<IService> theService)
    : service(std::move(theService)), url(service->GetEndpointUrl()) {
    OmbryZephCore::ZephUrlParts parts = OmbryZephCore::ParseUrl(url);
    basePath = std::move(parts.path);
    parameters = OmbryZephCore::ZephSorrelConnectionParameters(std::move(parts.host), ParsePort(parts.port));
    parameters.SetUseSSL(parts.scheme == "https");
    OmbryZephCore::ZephCertificateValidation rule{OmbryZephCore::ValidateByPublicKey,
                                                  service->GetEndpointCertificate()};
    isChecked = !rule.m_Certificate.empty();
    if (!isChecked) rule.m_Mode = OmbryZephCore::ValidateNothing;
    parameters.SetCertificateValidation(std::move(rule));
}

}  // namespace Ombry::ClientCommunications
