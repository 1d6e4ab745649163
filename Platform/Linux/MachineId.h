#pragma once

#include "Platform/Result.h"

#include <string>

namespace Ombry::Platform::Linux {

inline constexpr const char* MachineIdFile = "/etc/machine-id";

/// The first line of the file at `path`, also behind links, as `IMachineId::MachineId` gives it.
ValueOr<std::string> ReadMachineId(const std::string& path);

}  // namespace Ombry::Platform::Linux
