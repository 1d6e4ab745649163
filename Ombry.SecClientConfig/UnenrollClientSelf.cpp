#include "Ombry.SecClientConfig/UnenrollClientSelf.h"

#include <stdexcept>

#include "Ombry.SecClientConfig/CommandOptions.h"

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

int UnenrollClientSelf::Work(const Options&) {
    throw std::runtime_error("The work of unenroll-client-self is not part of this version yet.");
}

}  // namespace Ombry::SecClientConfig
