#pragma once

namespace Example {

/// Calls one service in a loop until it is asked to end (`StopSignals`). Takes the arguments of `main` and
/// returns its result: 0 when it was, 1 if it could not begin, 2 for a bad command line.
int RunLongRunningClient(int argc, char** argv);

}  // namespace Example
