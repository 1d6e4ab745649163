#include "Ombry.SecClientConfig/Command.h"

#include <iostream>

namespace Ombry::SecClientConfig {

int WriteUsage(Command& command, bool toError, const std::string& text) {
    std::string word;
    (toError ? std::cerr : std::cout) << "Ombry.SecClientConfig " + command.Name(word) + text;
    return toError ? -1 : 0;
}

}  // namespace Ombry::SecClientConfig
