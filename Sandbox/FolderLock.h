#pragma once

#include <string>

namespace Ombry::Sandbox {

/// A folder that no other instance works in until the end of the scope.
class FolderLock {
public:
    /// Waits for whoever holds it.
    /// @throws std::runtime_error if the folder cannot be opened or locked
    explicit FolderLock(const std::string& folder);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    const int descriptor;
};

}  // namespace Ombry::Sandbox
