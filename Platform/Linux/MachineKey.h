#pragma once

#include "Platform/Result.h"

#include <cerrno>
#include <string>

namespace Ombry::Platform::Linux {

enum class KeyScope { Machine, User };

/// The failure of a key file that others may read or write, or that somebody else owns. No system call that a
/// key is read with gives this number.
inline constexpr int KeyIsNotPrivate = EKEYREJECTED;

/// Where a key lies below the Quennet folder, apart from the folders that hold what it protects.
inline constexpr const char* KeyFolderName = "/Keys";
inline constexpr const char* KeyFileName = "/protection.key";

/// Where the key of that scope lies, whether it is there or not.
ValueOr<std::string> KeyFile(KeyScope scope);

/// The 32 random bytes behind what is protected for the machine or for the current user. Whoever gets them
/// wipes them.
ValueOr<std::string> LoadKey(KeyScope scope);

/// The same; a key that does not exist yet is made, once, also if several processes ask at the same moment. A
/// damaged key is a failure (EBADMSG), and so is one that is not private; neither is replaced: all that it
/// protects would be lost.
ValueOr<std::string> LoadOrMakeKey(KeyScope scope);

}  // namespace Ombry::Platform::Linux
