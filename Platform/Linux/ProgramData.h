#pragma once

#include "Platform/Result.h"

#include <string>
#include <string_view>

namespace Ombry::Platform::Linux {

/// The Quennet folder of the machine in UTF-8.
ValueOr<std::string> ProgramDataFolder();

/// Wide text in UTF-8; empty text stays empty.
ValueOr<std::string> Utf8(std::wstring_view wide);

}  // namespace Ombry::Platform::Linux
