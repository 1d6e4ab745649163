#pragma once

#include "Ombry.SecClientConfig/Command.h"

namespace Ombry::SecClientConfig {

/// Lists the commands of the table, or prints the usage of one.
class Help : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;
};

}  // namespace Ombry::SecClientConfig
