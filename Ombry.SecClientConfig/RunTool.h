#pragma once

namespace Ombry::SecClientConfig {

/// All of the tool: registers its commands and dispatches. Takes the arguments of `main` and returns its
/// result, 0 or -1. An exception that is not a `std::exception` passes through.
int RunTool(int argc, char** argv);

/// Puts one object of each of the eight commands into the table.
void RegisterCommands();

/// Runs the command that `argv[1]` names, or says how to find help. The one place of the tool that stops
/// every exception of the standard library's kind; `EnrollmentManager` stops those of three narrow steps,
/// whose failure means that there is nothing to be removed.
int Dispatch(int argc, char** argv);

}  // namespace Ombry::SecClientConfig
