#pragma once

#include "Platform/Result.h"
#include "Platform/Windows/Handle.h"

#include <string>
#include <vector>

// Folders, by paths of `WidePath`.
namespace Ombry::Platform::Windows {

/// Success if there is such a folder, also behind a link; ERROR_DIRECTORY for anything else.
Result CheckFolder(const std::wstring& path);

/// Makes one folder, private from the start, and says whether it did: one that exists already, or that
/// another process made in between, is a success.
ValueOr<bool> MakeFolder(const std::wstring& path);

/// Opens a folder for a change that is to be flushed; waits for it as `Open`.
ValueOr<Handle> OpenToFlush(const std::wstring& folder);

/// Names in a folder, without "." and "..".
ValueOr<std::vector<std::wstring>> NamesIn(const std::wstring& folder);

/// The path of what has that name in a folder.
std::wstring PathIn(const std::wstring& folder, const std::wstring& name);

}  // namespace Ombry::Platform::Windows
