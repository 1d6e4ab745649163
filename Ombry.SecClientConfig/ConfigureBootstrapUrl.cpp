#include "Ombry.SecClientConfig/ConfigureBootstrapUrl.h"

#include "ClientCommunications/IClientConfig.h"
#include "ClientCommunications/Impl/LowerCase.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

namespace Ombry::SecClientConfig {
namespace {

// The usual URL of a service on a host. A host that holds a ":" is taken to name its own port, IPv6 brackets
// included, and the port is not checked.
std::string MakeUrlOfHost(const std::string& host) {
    const bool hasPort = host.find(':') != std::string::npos;
    return "https://" + ClientCommunications::LowerCase(host) + (hasPort ? "" : ":8181") +
           "/securityframeworkservice";
}

}  // namespace

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
        CheckIdentity(who, error);
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

int ConfigureBootstrapUrl::Work(const Options& given) {
    ClientCommunications::ClientConfigParameters parameters{std::string()};
    parameters.SetUserName(given.identity.userName)
        .SetPassword(given.identity.password)
        .SetFixedToken(given.identity.token)
        .SetSfsUrl(given.sfsUrl.empty() ? MakeUrlOfHost(given.sfsHost) : given.sfsUrl);
    const auto config = parameters.Build();
    config->SetDatacenterId(given.datacenterId);
    config->SetDatacenterName(given.datacenterName);
    config->Configure();
    return 0;
}

}  // namespace Ombry::SecClientConfig
