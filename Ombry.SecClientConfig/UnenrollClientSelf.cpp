#include "Ombry.SecClientConfig/UnenrollClientSelf.h"

#include "ClientCommunications/IClientCommunications.h"
#include "Ombry.SecClientConfig/CommandOptions.h"
#include "Ombry.SecClientConfig/EnrollmentManager.h"

namespace Ombry::SecClientConfig {

std::string& UnenrollClientSelf::Name(std::string& out) {
    return out = "unenroll-client-self";
}

int UnenrollClientSelf::Usage(bool toError) {
    return WriteUsage(*this, toError,
                      " -n clientName\n\n"
                      "where\n\n"
                      "    clientName is the friendly name of an existing client to unenroll\n");
}

int UnenrollClientSelf::Execute(int argc, char** argv) {
    Options given;
    const auto checks = [&](bool& error) { RequireOption("-n", given.clientName, error); };
    if (!ReadOptions(argc, argv, {{"-n", given.clientName}}, checks)) {
        return Usage(true);
    }
    return Work(given);
}

int UnenrollClientSelf::Work(const Options& given) {
    // The client acts as itself, with its stored credentials and its own cache directory.
    const ClientCommunications::CommunicationsParameters parameters(given.clientName);
    EnrollmentManager manager(ClientCommunications::MakeClientCommunications(parameters));
    manager.UnenrollClientSelf(given.clientName);
    return 0;
}

}  // namespace Ombry::SecClientConfig
