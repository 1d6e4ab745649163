#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

namespace Ombry::Platform::Linux {

/// A new private file that has no other user: made beside its target, under a name that nobody can foresee,
/// and removed with this object unless it was given its final name. It is locked (flock) until then, which
/// tells it from what a process that was killed has left behind.
class TemporaryFile {
public:
    /// The first one in a folder since the process began removes what others left there.
    static ValueOr<TemporaryFile> CreateBeside(const std::string& target);

    TemporaryFile(TemporaryFile&& other) noexcept
        : descriptor(std::move(other.descriptor)),
          lock(std::move(other.lock)),
          path(std::exchange(other.path, {})) {}
    TemporaryFile& operator=(TemporaryFile&&) = delete;
    ~TemporaryFile() {
        if (!path.empty()) unlink(path.c_str());
    }

    int Number() const { return descriptor.Number(); }

    /// Closes the file, which stays locked.
    Result Close() { return descriptor.Close(); }

    /// Takes the place of `target`, whatever is there.
    Result RenameTo(const std::string& target);
    /// Becomes `target`; fails with EEXIST if there is such a file already.
    Result LinkTo(const std::string& target) const { return Outcome(link(path.c_str(), target.c_str())); }

private:
    TemporaryFile(Descriptor descriptor, std::string path)
        : descriptor(std::move(descriptor)), path(std::move(path)) {}

    /// Locks the new file and gives it its mode; false if another process has taken it for a leftover.
    ValueOr<bool> Claim();

    Descriptor descriptor;
    Descriptor lock;   // the same open file once more: it is locked until its last descriptor is closed
    std::string path;  // empty once renamed
};

/// Removes the temporary files in a folder that no living process holds. What cannot be looked at, locked or
/// removed stays, as everything does on a file system without locks.
void RemoveLeftovers(const std::string& folder);

/// The same, but only the first time that this process asks for the folder: a listing for each save would be
/// too dear.
void RemoveLeftoversOnce(const std::string& folder);

}  // namespace Ombry::Platform::Linux
