#pragma once

#include <string>
#include <vector>

namespace Ombry::Sandbox {

struct DatacenterOption {
    std::string id;
    std::string name;
};

/// What the command line says. Defaults are those of a service that a newcomer starts with no option at all.
struct Options {
    std::string address = "127.0.0.1";
    int port = 0;  ///< 0: the system picks one
    std::string stateFolder = "sandbox-state";
    std::string basePath = "/securityframeworkservice";
    std::string user = "admin";
    std::string password = "secret";
    std::string passwordFile;  ///< whose first line takes the place of the password; empty for none
    std::string installToken;
    std::vector<DatacenterOption> datacenters;
    std::string ownDatacenter;  ///< of this instance; the first of the list if empty
    std::vector<std::string> clientRights{"enroll-services", "unenroll-services"};
    std::vector<std::string> faults;
    std::string cacheControl = "max-age=300, stale-while-revalidate=604500";
    long tokenSeconds = 3600;
    long threads = 8;  ///< connections that are served at once; others wait, and then none is kept
    std::vector<std::string>
        pageHosts;  ///< names by which the page is reached, besides addresses and localhost
    bool plainHttp = false;
    bool tokenForDatacenters = false;
    std::string help;  ///< what is asked for instead of the service; empty unless it is
};

/// `std::invalid_argument` with a message for the user.
Options ParseOptions(int argc, char** argv);

}  // namespace Ombry::Sandbox
