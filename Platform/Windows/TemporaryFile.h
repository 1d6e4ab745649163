#pragma once

#include "Platform/Result.h"
#include "Platform/Windows/OpenFile.h"

#include <string>
#include <utility>

namespace Ombry::Platform::Windows {

/// A new private file that has no other user: made beside its target, under a name that nobody can foresee,
/// and removed with this object unless it was given its final name. While it is open nobody else can write to
/// it or remove it, which tells it from what a process that was killed has left behind.
class TemporaryFile {
public:
    /// `target` is a path of `WidePath`. The first one in a folder since the process began removes what
    /// others left there.
    static ValueOr<TemporaryFile> CreateBeside(const std::wstring& target);

    TemporaryFile(TemporaryFile&&) noexcept = default;
    TemporaryFile& operator=(TemporaryFile&&) = delete;
    ~TemporaryFile() {
        if (file) static_cast<void>(Remove(file));
    }

    const Handle& File() const { return file; }

    /// Takes the place of `target`, as `Windows::RenameTo` does, and is closed.
    Result RenameTo(const std::wstring& target);

private:
    explicit TemporaryFile(Handle file) : file(std::move(file)) {}

    Handle file;  // none once renamed
};

/// Removes the temporary files in a folder that no living process holds. What cannot be opened or removed
/// stays.
void RemoveLeftovers(const std::wstring& folder);

/// The same, but only the first time that this process asks for the folder: a listing for each save would be
/// too dear.
void RemoveLeftoversOnce(const std::wstring& folder);

}  // namespace Ombry::Platform::Windows
