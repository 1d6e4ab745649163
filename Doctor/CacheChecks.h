#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

#include <string>
#include <vector>

namespace Ombry::Doctor {

/// The lists of the discovery servers.
Findings CheckDiscoveryCaches(const Machine& machine);
/// What was found through discovery.
Findings CheckSearchCaches(const Machine& machine);
/// Service tokens: for what, and for how long. Nothing else of them.
Findings CheckTokens(const Machine& machine);

/// A folder that caches lie in, of a client or of the users and tokens together.
struct CacheFolder {
    std::string path;
    std::string owner;  ///< the client's name; empty for users and tokens
};
std::vector<CacheFolder> CacheFoldersOf(const Machine& machine);

/// Where an owner's list of discovery servers lies, whether there is one or not.
std::string DiscoveryListOf(const Machine& machine, const std::string& owner);

/// A server of a list of discovery servers that can be read.
struct KnownServer {
    std::string url;
    std::string certificate;         ///< Base64 text of its certificate, or empty
    std::vector<std::string> lists;  ///< the files that name it
};
/// Each once, in the order in which they are met.
std::vector<KnownServer> DiscoveryServersOf(const Machine& machine);

}  // namespace Ombry::Doctor
