#pragma once

#include "LibraryLogger/ILogger.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Where a machine's files lie and who is acting: a value, copied freely.
struct CommunicationsParameters {
    /// Fills in the defaults; `std::runtime_error` if the system has no program-data folder.
    explicit CommunicationsParameters(const std::string& clientName);
    /// A copy of everything, which wipes its own secrets.
    CommunicationsParameters(const CommunicationsParameters&) = default;
    /// The same; the secrets that stood here are not wiped.
    CommunicationsParameters& operator=(const CommunicationsParameters&) = default;
    /// Wipes `password` and `fixedToken`.
    ~CommunicationsParameters();

    /// Sets `userName`; the cache directory stays.
    void SetUserName(const std::string& name) { userName = name; }
    /// Sets `password`, and wipes the one before.
    void SetPassword(const std::string& text);
    /// Sets `fixedToken`, and wipes the one before.
    void SetFixedToken(const std::string& token);

    /// These two keep the cache directory in step, unless it was set by hand. A user name set earlier counts
    /// as by hand: it does not move the directory, and the default no longer matches.
    void SetClientName(const std::string& name);
    /// See `SetClientName`.
    void SetSecurityDirectory(const std::string& directory);

    /// A client that is enrolled on this machine, by its friendly name; empty for none. Give one identity:
    /// client, user or fixed token. A token counts only without the other two; with a client and a user, the
    /// client's id and secret would go to the call for users' tokens (but see `ClientConfigParameters`). With
    /// none, calls go out as nobody.
    std::string clientName;
    /// A user of the service; empty, as by default, for none.
    std::string userName;
    /// The user's password; of use with a user name alone. Wiped with the object, like the fixed token.
    std::string password;
    /// A token that is sent as it is, and neither stored nor renewed; empty, as by default, for none.
    std::string fixedToken;
    /// Where configuration, credentials and records lie; the folder "OmbrySecurity" below
    /// `GetProgramDataQuennetPath` by default. Paths are UTF-8, without "/" at the end.
    std::string securityDirectory;
    /// Where the caches lie: plain tokens are among them. By default "CS-cpp/cache/" below the security
    /// directory, with the client's name behind it.
    std::string cacheDirectory;
    /// Whether the service's certificate is looked for in a store of the current user; false, as by default,
    /// for the machine's.
    bool useCurrentUserStore = false;
    /// The name of the certificate store, one component of a path. That it is called as the folder is, by
    /// default, is a fact of its own: neither follows the other.
    std::wstring storeName = L"OmbrySecurity";
    /// Where the libraries report; null, as by default, for nowhere. Shared with all that is made from here.
    std::shared_ptr<LibraryLogger::ILogger> logger;
    /// A file whose element `<DatacenterId>`, if there is one, outranks the machine's own; "common.config"
    /// below `GetProgramDataQuennetPath` by default. Need not exist.
    std::string commonConfigPath;
    /// Whether the logger also gets, at level 0, each step of the network stages and what comes over TLS in
    /// deciphered form: tokens are in those lines. For a search for faults, never for everyday use. False by
    /// default, and without effect where there is no logger.
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
