#pragma once

#include "Platform/IMachineProtection.h"

namespace Ombry::Platform::Linux {

/// Deciphers what the machine's protection has enciphered, and enciphers to nothing, as
/// `IInspection::Deciphering` has it.
IMachineProtection& DecipheringOnly();

}  // namespace Ombry::Platform::Linux
