#include "Ombry.SecClientConfig/CommandTable.h"

#include <utility>

namespace Ombry::SecClientConfig {

CommandTable& Commands() {
    static CommandTable table;
    return table;
}

void RegisterCommand(std::shared_ptr<Command> command) {
    std::string word;
    command->Name(word);
    Commands()[word] = std::move(command);
}

}  // namespace Ombry::SecClientConfig
