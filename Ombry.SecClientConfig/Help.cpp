#include "Ombry.SecClientConfig/Help.h"

#include "Ombry.SecClientConfig/CommandTable.h"

#include <iostream>

namespace Ombry::SecClientConfig {

std::string& Help::Name(std::string& out) {
    return out = "help";
}

int Help::Usage(bool toError) {
    std::string text =
        "Ombry.SecClientConfig command options\n\n"
        "where command is one of:\n";
    for (const auto& [word, command] : Commands())
        text += "    " + word + "\n";
    text +=
        "\nFor help with individual commands, type:\n"
        "    Ombry.SecClientConfig help command\n";
    (toError ? std::cerr : std::cout) << text;
    return toError ? -1 : 0;
}

int Help::Execute(int argc, char** argv) {
    if (argc > 2) {
        const auto found = Commands().find(argv[2]);
        if (found != Commands().end()) return found->second->Usage(false);
    }
    // Only help about a command is a success; a script that runs a bare "help" by mistake gets an error.
    return Usage(true);
}

}  // namespace Ombry::SecClientConfig
