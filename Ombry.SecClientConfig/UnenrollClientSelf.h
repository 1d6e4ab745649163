#pragma once

#include "Ombry.SecClientConfig/Command.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Removes a client by its own authority.
class UnenrollClientSelf : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        std::string clientName;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
