#pragma once

#include "Platform/Result.h"

#include <string>

namespace Ombry::Platform::Windows {

/// A path of `IFiles` as the system's calls take it: UTF-16, absolute, with backslashes alone and none at its
/// end, behind the prefix that lifts the limit of 260 units. With that prefix the system takes each name as
/// it stands; so those are refused here, by ERROR_INVALID_NAME, that it would otherwise take for another file
/// or for a device: reserved ones (CON, NUL.txt), ones with a point or a blank at their end, ones with a
/// colon or another character that no name has, and whole paths that lead to a device. The empty path fails
/// with ERROR_PATH_NOT_FOUND, what is no UTF-8 with the number of the conversion.
ValueOr<std::wstring> WidePath(const std::string& path);

/// The folder that holds a path of `WidePath`; of the root of a drive the root.
std::wstring ParentOf(const std::wstring& path);

/// Where in a path of `WidePath` the first name stands behind the root of its drive or share.
std::size_t EndOfRoot(const std::wstring& path);

}  // namespace Ombry::Platform::Windows
