#include "Ombry.SecClientConfig/EnrollClient.h"

#include <stdexcept>

#include "Ombry.SecClientConfig/CommandOptions.h"

namespace Ombry::SecClientConfig {

std::string& EnrollClient::Name(std::string& out) {
    return out = "enroll-client";
}

int EnrollClient::Usage(bool toError) {
    return WriteUsage(
        *this, toError,
        " [-u userName -p password | -n clientName] -nn newClientName [-desc description] [-rps "
        "rolesPerService]"
        "\n\n"
        "where\n\n"
        "    userName is the name of a user with permission to enroll clients\n"
        "    password is the password for the above user\n"
        "    clientName is the friendly name of an existing client with permission to enroll clients\n"
        "    newClientName is the friendly name of the new client to register\n"
        "    description is a user-friendly description of the client\n"
        "    rolesPerService is a map of services to roles that this client should be granted\n"
        "    rolesPerService is a JSON document with the following format:\n"
        "    "
        "[[\"serviceName1\":[\"roles\",\"role2\",...]],[\"servicename2\":[\"role1\",\"roles2\",...]],...]\n");
}

int EnrollClient::Execute(int argc, char** argv) {
    Options given;
    Identity& who = given.identity;
    const auto checks = [&](bool& error) {
        RequireOption("-nn", given.newClientName, error);
        CheckIdentity(who.userName, who.password, who.clientName, who.token, error);
    };
    if (!ReadOptions(argc, argv,
                     {{"-u", who.userName},
                      {"-p", who.password},
                      {"-n", who.clientName},
                      {"-t", who.token},
                      {"-nn", given.newClientName},
                      {"-desc", given.description},
                      {"-rps", given.rolesPerService}},
                     checks)) {
        return Usage(true);
    }
    return Work(given);
}

int EnrollClient::Work(const Options&) {
    throw std::runtime_error("The work of enroll-client is not part of this version yet.");
}

}  // namespace Ombry::SecClientConfig
