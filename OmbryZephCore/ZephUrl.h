#pragma once

#include <string>

namespace OmbryZephCore {

/// The parts of a URL; `path` begins with "/" and `query` with "?" if there is one.
struct ZephUrlParts {
    std::string query;
    std::string path;
    std::string scheme;
    std::string host;
    std::string port;
};

/// Splits a URL. Nothing is validated or folded, and there is no user information; an empty port becomes
/// "443" for the scheme "https" and "80" for "http". Never fails.
ZephUrlParts ParseUrl(const std::string& url);

}  // namespace OmbryZephCore
