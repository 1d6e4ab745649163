#include "Ombry.SecClientConfig/RunTool.h"

#include "Ombry.SecClientConfig/CommandTable.h"
#include "Ombry.SecClientConfig/ConfigureBootstrapUrl.h"
#include "Ombry.SecClientConfig/EnrollClient.h"
#include "Ombry.SecClientConfig/EnrollService.h"
#include "Ombry.SecClientConfig/GetDatacenters.h"
#include "Ombry.SecClientConfig/Help.h"
#include "Ombry.SecClientConfig/UnenrollClient.h"
#include "Ombry.SecClientConfig/UnenrollClientSelf.h"
#include "Ombry.SecClientConfig/UnenrollService.h"

#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

namespace Ombry::SecClientConfig {
namespace {

int RunCommand(int argc, char** argv) {
    const auto found = argc > 1 ? Commands().find(argv[1]) : Commands().end();
    if (found == Commands().end()) return Commands().at("help")->Usage(true);
    return found->second->Execute(argc, argv);
}

// A list that nobody received, because the disk is full or the reader has gone, is not a success.
void FlushOutput() {
    if (!std::cout.flush()) throw std::runtime_error("The standard output could not be written.");
}

// In one piece, so that lines of processes that share the stream do not mix. Where memory has run out there
// may be none left for that either.
void Report(const std::exception& exception) {
    try {
        std::cerr << std::string("Caught exception: ") + exception.what() + "\n";
    } catch (const std::bad_alloc&) {
        std::cerr << "Caught exception: " << exception.what() << "\n";
    }
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
        Report(exception);
        return -1;
    }
}

}  // namespace Ombry::SecClientConfig
