#include "Ombry.SecClientConfig/UnenrollClient.h"

#include "Ombry.SecClientConfig/CommandOptions.h"
#include "Ombry.SecClientConfig/EnrollmentManager.h"

namespace Ombry::SecClientConfig {

std::string& UnenrollClient::Name(std::string& out) {
    return out = "unenroll-client";
}

int UnenrollClient::Usage(bool toError) {
    return WriteUsage(
        *this, toError,
        " [-u userName -p password | -n clientName] -un unenrollClientName\n\n"
        "where\n\n"
        "    userName is the name of a user with permission to unenroll clients\n"
        "    password is the password for the above user\n"
        "    clientName is the friendly name of an existing client with permission to unenroll clients\n"
        "    token is an access token with permission to unenroll clients\n"
        "    unenrollClientName is the friendly name of the client to unenroll\n");
}

int UnenrollClient::Execute(int argc, char** argv) {
    Options given;
    Identity& who = given.identity;
    const auto checks = [&](bool& error) {
        RequireOption("-un", given.unenrollClientName, error);
        CheckIdentity(who, error);
    };
    if (!ReadOptions(argc, argv, WithIdentity(who, {{"-un", given.unenrollClientName}}), checks)) {
        return Usage(true);
    }
    return Work(given);
}

int UnenrollClient::Work(const Options& given) {
    EnrollmentManager manager(MakeCommunications(given.identity));
    manager.UnenrollClient(given.unenrollClientName);
    return 0;
}

}  // namespace Ombry::SecClientConfig
