#include "Ombry.SecClientConfig/GetDatacenters.h"

#include <stdexcept>

#include "Ombry.SecClientConfig/CommandOptions.h"

namespace Ombry::SecClientConfig {

std::string& GetDatacenters::Name(std::string& out) {
    return out = "get-datacenters";
}

int GetDatacenters::Usage(bool toError) {
    return WriteUsage(*this, toError,
                      " [-u userName -p password | -n clientName | -t token] -r sfsUrl\n\n"
                      "where\n\n"
                      "    userName is the name of a user registered with the Security Framework\n"
                      "    password is the password for the above user\n"
                      "    clientName is the friendly name of an existing client\n"
                      "    token is a fixed authentication token (for example, a client install token)\n"
                      "    *** Either a userName and password or a token must be supplied\n"
                      "    sfsUrl is the base URL of a Security Framework service instance\n");
}

int GetDatacenters::Execute(int argc, char** argv) {
    Options given;
    Identity& who = given.identity;
    const auto checks = [&](bool& error) {
        CheckIdentity(who.userName, who.password, who.clientName, who.token, error);
        RequireOption("-r", given.sfsUrl, error);
    };
    if (!ReadOptions(argc, argv,
                     {{"-u", who.userName},
                      {"-p", who.password},
                      {"-n", who.clientName},
                      {"-t", who.token},
                      {"-r", given.sfsUrl}},
                     checks)) {
        return Usage(true);
    }
    return Work(given);
}

int GetDatacenters::Work(const Options&) {
    throw std::runtime_error("The work of get-datacenters is not part of this version yet.");
}

}  // namespace Ombry::SecClientConfig
