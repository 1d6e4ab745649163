#include "Ombry.SecClientConfig/EnrollService.h"

#include "Ombry.SecClientConfig/CommandOptions.h"
#include "Ombry.SecClientConfig/EnrollmentManager.h"

namespace Ombry::SecClientConfig {

std::string& EnrollService::Name(std::string& out) {
    return out = "enroll-service";
}

int EnrollService::Usage(bool toError) {
    return WriteUsage(*this, toError,
                      " [options]\n"
                      "    -u            The user name of the security administrator.\n\n"
                      "    -p            The password of the security administrator.\n\n"
                      "    -n            The name of a client that has permission to enroll\n"
                      "                  services.\n"
                      "    -t            An access token that has permission to enroll services.\n"
                      "        *** Exactly one of -u, -n or -t must be supplied.\n\n"
                      "    -owner        Required. The name of the client that owns the service.\n"
                      "                  This must be previously enrolled with the enroll-client\n"
                      "                  command.\n\n"
                      "    -name         Required. The name of the service to enroll.\n\n"
                      "    -url          Required. The endpoint url associated with the service.\n\n"
                      "    -namespace    Required. Specifies the namespace (product) such as Trevane,\n"
                      "                  Paperloom, etc. for lookups.\n\n"
                      "    -hostname     Required. Service host name.\n\n");
}

int EnrollService::Execute(int argc, char** argv) {
    Options given;
    Identity& who = given.identity;
    const auto checks = [&](bool& error) {
        CheckIdentity(who, error);
        RequireOption("-owner", given.owner, error);
        RequireOption("-name", given.name, error);
        RequireOption("-url", given.url, error);
        RequireOption("-namespace", given.namespaceName, error);
        RequireOption("-hostname", given.hostName, error);
    };
    if (!ReadOptions(argc, argv,
                     WithIdentity(who, {{"-owner", given.owner},
                                        {"-name", given.name},
                                        {"-url", given.url},
                                        {"-namespace", given.namespaceName},
                                        {"-hostname", given.hostName}}),
                     checks)) {
        return Usage(true);
    }
    return Work(given);
}

int EnrollService::Work(const Options& given) {
    ServiceEnrollmentRequest request;
    request.clientName = given.owner;
    request.serviceName = given.name;
    request.directUrl = given.url;
    request.endpointUrl = given.url;
    request.serviceHostname = given.hostName;
    request.serviceNamespace = given.namespaceName;
    EnrollmentManager manager(MakeCommunications(given.identity));
    manager.EnrollService(std::move(request));
    return 0;
}

}  // namespace Ombry::SecClientConfig
