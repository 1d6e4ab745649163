#include "Ombry.SecClientConfig/UnenrollService.h"

#include "Ombry.SecClientConfig/CommandOptions.h"
#include "Ombry.SecClientConfig/EnrollmentManager.h"

namespace Ombry::SecClientConfig {

std::string& UnenrollService::Name(std::string& out) {
    return out = "unenroll-service";
}

int UnenrollService::Usage(bool toError) {
    return WriteUsage(
        *this, toError,
        " [-u userName -p password | -n clientName] -on ownerClientName -s serviceName\n\n"
        "where\n\n"
        "    userName is the name of a user with permission to unenroll services\n"
        "    password is the password for the above user\n"
        "    clientName is the friendly name of an existing client with permission to unenroll services\n"
        "    token is an access token with permission to unenroll services\n"
        "    ownerClientName is the friendly name of the client that owns the service to unenroll\n"
        "    serviceName is the name of the service to unenroll (for example, \"v1-zephdv1-re\")\n");
}

int UnenrollService::Execute(int argc, char** argv) {
    Options given;
    Identity& who = given.identity;
    const auto checks = [&](bool& error) {
        RequireOption("-on", given.ownerClientName, error);
        RequireOption("-s", given.serviceName, error);
        CheckIdentity(who, error);
    };
    if (!ReadOptions(argc, argv,
                     WithIdentity(who, {{"-on", given.ownerClientName}, {"-s", given.serviceName}}),
                     checks)) {
        return Usage(true);
    }
    return Work(given);
}

int UnenrollService::Work(const Options& given) {
    EnrollmentManager manager(MakeCommunications(given.identity));
    manager.UnenrollService(given.ownerClientName, given.serviceName);
    return 0;
}

}  // namespace Ombry::SecClientConfig
