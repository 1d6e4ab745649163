#pragma once

namespace Example {

/// Calls one service in a loop until SIGINT or SIGTERM. Takes the arguments of `main` and returns its result:
/// 0 after a signal, 1 if it could not begin, 2 for a bad command line.
int RunLongRunningClient(int argc, char** argv);

}  // namespace Example
