#include "Ombry.SecClientConfig/ConfigureBootstrapUrl.h"

#include <stdexcept>

#include "Ombry.SecClientConfig/CommandOptions.h"

namespace Ombry::SecClientConfig {

std::string& ConfigureBootstrapUrl::Name(std::string& out) {
    return out = "configure-bootstrap-url";
}

int ConfigureBootstrapUrl::Usage(bool toError) {
    return WriteUsage(
        *this, toError,
        " -u userName -p password -t token -d datacenterId -dn datacenterName -r sfsUrl -h sfsHost\n\n"
        "where\n\n"
        "    userName is the name of a user registered with the Security Framework\n"
        "    password is the password for the above user\n\n"
        "    token is a fixed authentication token (for example, a client install token)\n"
        "    *** Either a userName and password or a token must be supplied\n"
        "    datacenterId is the GUID of the datacenter that this machine should belong to\n"
        "    datacenterName is the Name of the datacenter that this machine should belong to\n"
        "    *** Either datacenterId or datacenterName must be supplied, but not both\n\n"
        "    sfsUrl is the base URL of a Security Framework service instance\n"
        "    sfsHost is the host name of the machine running Security Framework service instance\n"
        "    *** Either sfsUrl or sfsHost must be supplied, but not both.\n\n");
}

int ConfigureBootstrapUrl::Execute(int argc, char** argv) {
    Options given;
    Identity& who = given.identity;
    const auto checks = [&](bool& error) {
        CheckIdentity(who.userName, who.password, who.clientName, who.token, error);
        if (given.datacenterId.empty() && given.datacenterName.empty()) {
            ReportError("Neither a datacenterId nor a datacenterName was provided.", error);
        }
        if (given.sfsUrl.empty() && given.sfsHost.empty()) {
            ReportError("Neither a sfsUrl nor a sfsHost was provided.", error);
        }
    };
    if (!ReadOptions(argc, argv,
                     {{"-u", who.userName},
                      {"-p", who.password},
                      {"-t", who.token},
                      {"-d", given.datacenterId},
                      {"-dn", given.datacenterName},
                      {"-r", given.sfsUrl},
                      {"-h", given.sfsHost}},
                     checks)) {
        return Usage(true);
    }
    return Work(given);
}

int ConfigureBootstrapUrl::Work(const Options&) {
    throw std::runtime_error("The work of configure-bootstrap-url is not part of this version yet.");
}

}  // namespace Ombry::SecClientConfig
