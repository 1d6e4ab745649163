#pragma once

#include "Ombry.SecClientConfig/Command.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Removes a client by the authority of another identity.
class UnenrollClient : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        Identity identity;
        std::string unenrollClientName;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
