#pragma once

#include "Platform/Result.h"

#include <sys/types.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Ombry::Platform::Linux {

/// Why something that is no regular file cannot be used as one.
int ErrorForKind(mode_t mode);

/// `IFiles::Read`, of a file that is no longer than that. A longer one is refused unread, as what is no
/// regular file.
ValueOr<std::string> ReadFile(const std::string& path,
                              std::uint64_t longest = std::numeric_limits<std::uint64_t>::max());

/// `IFiles::List`, up to so many names.
ValueOr<std::vector<std::string>> NamesIn(const std::string& folder,
                                          std::size_t most = std::numeric_limits<std::size_t>::max());

}  // namespace Ombry::Platform::Linux
