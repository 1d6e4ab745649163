#include "Ombry.SecClientConfig/EnrollClient.h"

#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/MapArray.h"
#include "ObjectMapping/Serialization.h"
#include "Ombry.SecClientConfig/CommandOptions.h"
#include "Ombry.SecClientConfig/EnrollmentManager.h"

namespace Ombry::SecClientConfig {
namespace {

// A map from service to roles, as an array of pairs: [["service",["role",...]],...]. The form with colons
// that the usage shows does not parse.
std::map<std::string, std::list<std::string>> ParseRolesPerService(const std::string& text) {
    std::map<std::string, std::list<std::string>> roles;
    const auto deserializer = ObjectMapping::CreateJSONDeserializer(false);
    deserializer->Begin(text);
    ObjectMapping::MapArray array(roles);
    deserializer->Field(nullptr, array, nullptr);
    deserializer->End();
    return roles;
}

}  // namespace

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
        CheckIdentity(who, error);
    };
    if (!ReadOptions(argc, argv,
                     WithIdentity(who, {{"-nn", given.newClientName},
                                        {"-desc", given.description},
                                        {"-rps", given.rolesPerService}}),
                     checks)) {
        return Usage(true);
    }
    return Work(given);
}

int EnrollClient::Work(const Options& given) {
    EnrollmentManager manager(MakeCommunications(given.identity));
    ClientEnrollmentRequest request;
    request.name = given.newClientName;
    if (!given.description.empty()) request.description = given.description;
    if (!given.rolesPerService.empty()) request.rolesPerService = ParseRolesPerService(given.rolesPerService);
    manager.EnrollClient(std::move(request));
    return 0;
}

}  // namespace Ombry::SecClientConfig
