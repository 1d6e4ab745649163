#pragma once

#include <map>
#include <string>

namespace Ombry::Tests {

/// Every text of the tool that ends with a usage, whole.
inline const std::string GeneralHelp = R"(Ombry.SecClientConfig command options

where command is one of:
    configure-bootstrap-url
    enroll-client
    enroll-service
    get-datacenters
    help
    unenroll-client
    unenroll-client-self
    unenroll-service

For help with individual commands, type:
    Ombry.SecClientConfig help command
)";

/// The complaints about who is to act.
inline const std::string NoIdentity = "ERROR: No userName and password, client name or token was provided.\n";
inline const std::string HalfIdentity =
    "ERROR: When a userName or password is provided then the other must be provided as well.\n";
inline const std::string TwoIdentities =
    "ERROR: Only one of username/password, client name or token is allowed.\n";

/// By command word.
inline const std::map<std::string, std::string> Usages = {
    {"get-datacenters",
     R"(Ombry.SecClientConfig get-datacenters [-u userName -p password | -n clientName | -t token] -r sfsUrl

where

    userName is the name of a user registered with the Security Framework
    password is the password for the above user
    clientName is the friendly name of an existing client
    token is a fixed authentication token (for example, a client install token)
    *** Either a userName and password or a token must be supplied
    sfsUrl is the base URL of a Security Framework service instance
)"},
    {"configure-bootstrap-url",
     R"(Ombry.SecClientConfig configure-bootstrap-url -u userName -p password -t token -d datacenterId -dn datacenterName -r sfsUrl -h sfsHost

where

    userName is the name of a user registered with the Security Framework
    password is the password for the above user

    token is a fixed authentication token (for example, a client install token)
    *** Either a userName and password or a token must be supplied
    datacenterId is the GUID of the datacenter that this machine should belong to
    datacenterName is the Name of the datacenter that this machine should belong to
    *** Either datacenterId or datacenterName must be supplied, but not both

    sfsUrl is the base URL of a Security Framework service instance
    sfsHost is the host name of the machine running Security Framework service instance
    *** Either sfsUrl or sfsHost must be supplied, but not both.

)"},
    {"enroll-client",
     R"(Ombry.SecClientConfig enroll-client [-u userName -p password | -n clientName] -nn newClientName [-desc description] [-rps rolesPerService]

where

    userName is the name of a user with permission to enroll clients
    password is the password for the above user
    clientName is the friendly name of an existing client with permission to enroll clients
    newClientName is the friendly name of the new client to register
    description is a user-friendly description of the client
    rolesPerService is a map of services to roles that this client should be granted
    rolesPerService is a JSON document with the following format:
    [["serviceName1":["roles","role2",...]],["servicename2":["role1","roles2",...]],...]
)"},
    {"enroll-service", R"(Ombry.SecClientConfig enroll-service [options]
    -u            The user name of the security administrator.

    -p            The password of the security administrator.

    -n            The name of a client that has permission to enroll
                  services.
    -t            An access token that has permission to enroll services.
        *** Exactly one of -u, -n or -t must be supplied.

    -owner        Required. The name of the client that owns the service.
                  This must be previously enrolled with the enroll-client
                  command.

    -name         Required. The name of the service to enroll.

    -url          Required. The endpoint url associated with the service.

    -namespace    Required. Specifies the namespace (product) such as Trevane,
                  Paperloom, etc. for lookups.

    -hostname     Required. Service host name.

)"},
    {"unenroll-client-self", R"(Ombry.SecClientConfig unenroll-client-self -n clientName

where

    clientName is the friendly name of an existing client to unenroll
)"},
    {"unenroll-client",
     R"(Ombry.SecClientConfig unenroll-client [-u userName -p password | -n clientName] -un unenrollClientName

where

    userName is the name of a user with permission to unenroll clients
    password is the password for the above user
    clientName is the friendly name of an existing client with permission to unenroll clients
    token is an access token with permission to unenroll clients
    unenrollClientName is the friendly name of the client to unenroll
)"},
    {"unenroll-service",
     R"(Ombry.SecClientConfig unenroll-service [-u userName -p password | -n clientName] -on ownerClientName -s serviceName

where

    userName is the name of a user with permission to unenroll services
    password is the password for the above user
    clientName is the friendly name of an existing client with permission to unenroll services
    token is an access token with permission to unenroll services
    ownerClientName is the friendly name of the client that owns the service to unenroll
    serviceName is the name of the service to unenroll (for example, "v1-zephdv1-re")
)"},
};

}  // namespace Ombry::Tests
