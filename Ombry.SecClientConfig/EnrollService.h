#pragma once

#include "Ombry.SecClientConfig/Command.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Enrols a service that a client of this machine owns.
class EnrollService : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        Identity identity;
        std::string owner;
        std::string name;
        std::string url;
        std::string namespaceName;
        std::string hostName;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
