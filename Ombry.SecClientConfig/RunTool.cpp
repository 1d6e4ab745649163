#include "Ombry.SecClientConfig/RunTool.h"

#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "Ombry.SecClientConfig/CommandTable.h"
#include "Ombry.SecClientConfig/ConfigureBootstrapUrl.h"
#include "Ombry.SecClientConfig/EnrollClient.h"
#include "Ombry.SecClientConfig/EnrollService.h"
#include "Ombry.SecClientConfig/GetDatacenters.h"
#include "Ombry.SecClientConfig/Help.h"
#include "Ombry.SecClientConfig/UnenrollClient.h"
#include "Ombry.SecClientConfig/UnenrollClientSelf.h"
#include "Ombry.SecClientConfig/UnenrollService.h"

namespace Ombry::SecClientConfig {
namespace {

int RunCommand(int argc, char** argv) {
    const auto found = argc > 1 ? Commands().find(argv[1]) : Commands().end();
    if (found == Commands().end()) return Commands().at("help")->Usage(true);
    return found->second->Execute(argc, argv);
}

/// A list that nobody received, because the disk is full or the reader has gone, is not a success.
void FlushOutput() {
    if (!std::cout.flush()) throw std::runtime_error("The standard output could not be written.");
}

}  // namespace

int RunTool(int argc, char** argv) {
    RegisterCommands();
    return Dispatch(argc, argv);
}

void RegisterCommands() {
    RegisterCommand(std::make_shared<Help>());
    RegisterCommand(std::make_shared<GetDatacenters>());
    RegisterCommand(std::make_shared<ConfigureBootstrapUrl>());
    RegisterCommand(std::make_shared<EnrollClient>());
    RegisterCommand(std::make_shared<EnrollService>());
    RegisterCommand(std::make_shared<UnenrollClientSelf>());
    RegisterCommand(std::make_shared<UnenrollClient>());
    RegisterCommand(std::make_shared<UnenrollService>());
}

int Dispatch(int argc, char** argv) {
    try {
        const int exitCode = RunCommand(argc, argv);
        if (exitCode == 0) FlushOutput();
        return exitCode;
    } catch (const std::exception& exception) {
        std::cerr << std::string("Caught exception: ") + exception.what() + "\n";
        return -1;
    }
}

}  // namespace Ombry::SecClientConfig
