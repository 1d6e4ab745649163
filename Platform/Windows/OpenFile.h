#pragma once

#include "Platform/Result.h"
#include "Platform/Windows/Handle.h"

#include <string>

// What is done with a file that is open, or to open one. Paths are those of `WidePath`.
namespace Ombry::Platform::Windows {

/// A folder where a file was expected; ERROR_DIRECTORY_NOT_SUPPORTED, which not every set of headers has.
inline constexpr int ErrorIsFolder = 336;

/// Opens what stands at a path, a link itself if it is one, for `access`; others may do with it what they
/// like meanwhile. What somebody else has locked, as a scanner does for a moment, is waited for.
ValueOr<Handle> Open(const std::wstring& path, DWORD access);

/// The same, but of a link what it leads to.
ValueOr<Handle> OpenBehindLinks(const std::wstring& path, DWORD access);

/// Success for a regular file: no folder, no link nor anything else that stands for something, no device.
Result CheckRegular(const Handle& file);

/// Success for what may be replaced or removed: no folder, and nothing that is marked read-only.
Result CheckReplaceable(const Handle& file);

/// Gives an open file a name; DELETE access is needed. A file of that name is replaced, a link as well; it
/// may be open for others, who keep what they have. What is not replaceable
/// stays. Where the file system cannot replace an open file, the wait for it is as for a locked one.
Result RenameTo(const Handle& file, const std::wstring& target);

/// Removes an open file; DELETE access is needed. Its name goes when this handle is closed, where the file
/// system can do that, and otherwise with the last one.
Result Remove(const Handle& file);

/// Puts the content of a file or a folder on the disk; write access is needed. A file system that knows no
/// such thing is a success.
Result Flush(const Handle& file);

/// Whether a call failed because this system or this file system does not have it.
bool MeansUnsupported(int error);

}  // namespace Ombry::Platform::Windows
