#pragma once

#include "Ombry.SecClientConfig/Command.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Lists the datacenters that a Security Framework service knows, before the machine is configured.
class GetDatacenters : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        Identity identity;
        std::string sfsUrl;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
