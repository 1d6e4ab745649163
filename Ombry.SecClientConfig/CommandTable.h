#pragma once

#include "Ombry.SecClientConfig/Command.h"

#include <map>
#include <memory>
#include <string>

namespace Ombry::SecClientConfig {

/// The commands by their words, in byte order of the word.
using CommandTable = std::map<std::string, std::shared_ptr<Command>>;

/// The one table of the process. Not guarded: the frame of the tool is single-threaded.
CommandTable& Commands();

/// Puts `command` into the table under the word that it names; what was there before is replaced.
void RegisterCommand(std::shared_ptr<Command> command);

}  // namespace Ombry::SecClientConfig
