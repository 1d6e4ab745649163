#pragma once

#include <memory>
#include <string>

#include "LibraryLogger/ILogger.h"

namespace Ombry::ClientCommunications {

/// Where a machine's files lie and who is acting: a value, copied freely.
struct CommunicationsParameters {
    /// Fills in the defaults; `std::runtime_error` if the system has no program-data folder.
    explicit CommunicationsParameters(const std::string& clientName);

    void SetUserName(const std::string& name) { userName = name; }
    void SetPassword(const std::string& text) { password = text; }
    void SetFixedToken(const std::string& token) { fixedToken = token; }

    /// These two keep the cache directory in step, unless it was set by hand. A user name set earlier counts
    /// as by hand: it does not move the directory, and the default no longer matches.
    void SetClientName(const std::string& name);
    void SetSecurityDirectory(const std::string& directory);

    std::string clientName;
    std::string userName;
    std::string password;
    std::string fixedToken;
    std::string securityDirectory;
    std::string cacheDirectory;
    bool useCurrentUserStore = false;
    std::wstring storeName = L"OmbrySecurity";
    std::shared_ptr<LibraryLogger::ILogger> logger;
    std::string commonConfigPath;
    /// Whether the logger also gets, at level 0, each step of the network stages and what comes over TLS in
    /// deciphered form: tokens are in those lines. For a search for faults, never for everyday use.
    bool verbose = false;

private:
    std::string DefaultCacheDirectory() const;
};

/// The folder under which everything lies, UTF-8. Failures are `std::runtime_error`.
std::string GetProgramDataQuennetPath();

/// The datacenter that this machine belongs to: from the common configuration file, otherwise from the
/// machine's own. `std::runtime_error` if there is neither.
std::string GetDatacenterId(const CommunicationsParameters& parameters);

}  // namespace Ombry::ClientCommunications
