#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"
#include "Platform/Time.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Platform {

/// Whether a change of a folder - a file that was replaced or removed, a new folder - is on the disk before
/// it is reported done. A power cut undoes one that is not, as a whole: what a file holds is on the disk
/// before the file has its name.
enum class Durability {
    Synced,   ///< identity, trust, configuration: must survive a power cut
    Unsynced  ///< caches: losing one, or getting an older one back, costs one call
};

/// A file that is about to take the place of another. Until `Complete` succeeds, the old file stands
/// untouched; destruction without it leaves no trace.
class IFileReplacement {
public:
    virtual ~IFileReplacement() = default;

    /// Writes `data`, which must have the announced size, and renames the new file over the old once its
    /// content is on the disk. Called once.
    virtual Result Complete(std::string_view data) = 0;

    /// Whether `Complete` wrote everything and then could not give the new file its name: the old one may not
    /// be replaced, as one that is immutable or mounted. Opening the old one for writing would mostly have
    /// failed, too.
    virtual bool IsRefused() const { return false; }
};

/// What tells one state of a file from another without reading it. A file that was replaced or written to has
/// another state, with one exception: the clock behind `changed` moves in steps, and of two changes within
/// one step the second may leave no trace.
struct FileState {
    std::uint64_t device = 0;
    std::uint64_t file = 0;  ///< its number on the device; given to another once the file is gone
    std::uint64_t size = 0;
    TimePoint changed{};  ///< when its content, its name or who may use it last changed, by the system clock

    bool operator==(const FileState&) const = default;
};

/// Whole-file operations on paths in UTF-8; a solidus separates, whatever the system has beside it. A path
/// that is no regular file (a folder, a symbolic link, a device) counts as one that cannot be opened. All
/// operations may be called from any thread.
class IFiles {
public:
    virtual ~IFiles() = default;

    /// The whole content of a regular file.
    virtual ValueOr<std::string> Read(const std::string& path) = 0;

    /// The state of a regular file, as opening it now would find it. It says nothing of whether the file may
    /// be read.
    virtual ValueOr<FileState> State(const std::string& path) = 0;

    /// Opens a temporary file beside `path`, for its owner alone (on Windows for SYSTEM and Administrators),
    /// and reserves `size` bytes for it, so that a full disk shows here. Fails if `path` exists and is no
    /// regular file.
    virtual ValueOr<std::unique_ptr<IFileReplacement>> BeginReplace(const std::string& path,
                                                                    std::uint64_t size,
                                                                    Durability durability) = 0;

    /// Removes a file; never a folder.
    virtual Result Remove(const std::string& path, Durability durability) = 0;

    /// Renames a file; an existing target is replaced. Not synced.
    virtual Result Rename(const std::string& from, const std::string& to) = 0;

    /// Names in a folder, without "." and "..", in no particular order.
    virtual ValueOr<std::vector<std::string>> List(const std::string& directory) = 0;

    /// Makes a folder and its missing parents, each for those alone whom `BeginReplace` names. An existing
    /// folder is a success.
    virtual Result CreateDirectories(const std::string& directory, Durability durability) = 0;
};

template <>
IFiles& Production<IFiles>();

inline IFiles& Files() {
    return Current<IFiles>();
}

}  // namespace Ombry::Platform
