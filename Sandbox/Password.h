#pragma once

#include <string>

namespace Ombry::Sandbox {

/// The first line of a file. Where there is no such file, one is made, with a random line and for its owner
/// alone. `std::runtime_error` if it can be neither read nor made, or its first line is empty.
std::string ReadOrMakePassword(const std::string& path);

}  // namespace Ombry::Sandbox
