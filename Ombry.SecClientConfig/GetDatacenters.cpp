#include "Ombry.SecClientConfig/GetDatacenters.h"

#include "ClientCommunications/IClientConfig.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <iostream>
#include <vector>

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
        CheckIdentity(who, error);
        RequireOption("-r", given.sfsUrl, error);
    };
    if (!ReadOptions(argc, argv, WithIdentity(who, {{"-r", given.sfsUrl}}), checks)) {
        return Usage(true);
    }
    return Work(given);
}

int GetDatacenters::Work(const Options& given) {
    ClientCommunications::ClientConfigParameters parameters{std::string()};
    // The client name is checked with the other options and then dropped: a call with it alone goes out as
    // nobody.
    parameters.SetUserName(given.identity.userName)
        .SetPassword(given.identity.password)
        .SetFixedToken(given.identity.token)
        .SetSfsUrl(given.sfsUrl);
    std::vector<ClientCommunications::Datacenter> datacenters;
    parameters.Build()->GetDatacenters(datacenters);
    for (const ClientCommunications::Datacenter& datacenter : datacenters) {
        std::cout << datacenter.id << '\t' << datacenter.name << '\n';
    }
    return 0;
}

}  // namespace Ombry::SecClientConfig
