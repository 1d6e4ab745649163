#pragma once

#include "Ombry.SecClientConfig/Command.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Enrols a new client and keeps its credentials.
class EnrollClient : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        Identity identity;
        std::string newClientName;
        std::string description;
        std::string rolesPerService;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
