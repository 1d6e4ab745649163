#pragma once

#include <ostream>

namespace Ombry::Doctor {

/// The whole program: reads the options, examines the machine, and writes what was found to `out`, or what is
/// wrong with the options to `error`. The exit code is that of a monitoring plug-in: 0 fine, 1 warning, 2
/// critical, 3 unknown.
int RunDoctor(int argc, char** argv, std::ostream& out, std::ostream& error);

}  // namespace Ombry::Doctor
