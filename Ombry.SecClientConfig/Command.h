#pragma once

#include <string>

namespace Ombry::SecClientConfig {

/// One command of the tool, found by its word. A command keeps nothing between two executions.
class Command {
public:
    virtual ~Command() = default;

    /// Stores the command word into `out` and returns it.
    virtual std::string& Name(std::string& out) = 0;

    /// Writes the usage to the standard error stream if `toError`, otherwise to the standard output. Returns
    /// the exit code of a run that ends with it: -1 or 0.
    virtual int Usage(bool toError) = 0;

    /// Runs the command with the arguments of the process, so that the first option stands at index 2.
    /// Returns the exit code of the process; failures of the work are exceptions.
    virtual int Execute(int argc, char** argv) = 0;
};

/// Writes "Ombry.SecClientConfig", the word of `command` and `text` to the stream of `Command::Usage`, and
/// returns its result.
int WriteUsage(Command& command, bool toError, const std::string& text);

}  // namespace Ombry::SecClientConfig
