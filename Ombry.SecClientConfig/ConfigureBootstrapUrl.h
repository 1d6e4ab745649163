#pragma once

#include "Ombry.SecClientConfig/Command.h"
#include "Ombry.SecClientConfig/CommandOptions.h"

#include <string>

namespace Ombry::SecClientConfig {

/// Ties the machine to a datacenter: stores it, the discovery address and the certificate of the first
/// contact.
class ConfigureBootstrapUrl : public Command {
public:
    std::string& Name(std::string& out) override;
    int Usage(bool toError) override;
    int Execute(int argc, char** argv) override;

private:
    struct Options {
        Identity identity;
        std::string datacenterId;
        std::string datacenterName;
        std::string sfsUrl;
        std::string sfsHost;
    };

    int Work(const Options& given);
};

}  // namespace Ombry::SecClientConfig
