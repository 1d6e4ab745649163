#include "Sandbox/BrowserGuard.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

namespace Ombry::Sandbox::BrowserGuard {
namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A host and perhaps a port (RFC 3986, section 3.2) without the port.
std::string WithoutPort(const std::string& authority) {
    const std::size_t colon = authority.rfind(':');
    const std::size_t bracket = authority.rfind(']');
    if (colon == std::string::npos || (bracket != std::string::npos && colon < bracket)) return authority;
    return authority.substr(0, colon);
}

bool IsAddress(const std::string& host) {
    unsigned char address[sizeof(in6_addr)];
    if (inet_pton(AF_INET, host.c_str(), address) == 1) return true;
    return host.starts_with('[') && host.ends_with(']') &&
           inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), address) == 1;
}

}  // namespace

bool IsFromAnotherOrigin(const httplib::Request& request, bool plainHttp) {
    const std::string own = (plainHttp ? "http://" : "https://") + request.get_header_value("Host");
    if (request.has_header("Origin") && Lower(request.get_header_value("Origin")) != Lower(own)) return true;
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    if (site.empty() || site == "same-origin" || site == "none") return false;
    const bool opensThePage = request.method == "GET" && request.path == "/" &&
                              request.get_header_value("Sec-Fetch-Mode") == "navigate";
    return !opensThePage;
}

bool HasKnownHost(const httplib::Request& request, const Options& options) {
    const std::string host = Lower(WithoutPort(request.get_header_value("Host")));
    if (IsAddress(host) || host == "localhost" || host == Lower(options.address)) return true;
    return std::any_of(options.pageHosts.begin(), options.pageHosts.end(),
                       [&](const std::string& name) { return Lower(name) == host; });
}

}  // namespace Ombry::Sandbox::BrowserGuard
