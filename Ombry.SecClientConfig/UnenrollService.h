#pragma once

#include "Ombry.SecClientConfig/Command.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Removes a service of an owner.
class UnenrollService : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        Identity identity;
        std::string ownerClientName;
        std::string serviceName;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
