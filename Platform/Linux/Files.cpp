#include "Platform/IFiles.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/FileReading.h"
#include "Platform/Linux/TemporaryFile.h"
#include "Platform/MadeOnce.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdio>
#include <limits>

namespace Ombry::Platform {
namespace {

using Linux::Descriptor;
using Linux::Outcome;
using Linux::Retry;

Result CheckReplaceable(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? Result::Success() : Result::Failure(errno);
    }
    return S_ISREG(status.st_mode) ? Result::Success() : Result::Failure(Linux::ErrorForKind(status.st_mode));
}

// Whether the process may make a file of that size. Reserving beyond the end of a file does not ask.
Result CheckSizeLimit(std::uint64_t size) {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return Result::Failure(errno);
    const bool fits =
        size <= static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) && size <= limit.rlim_cur;
    return fits ? Result::Success() : Result::Failure(EFBIG);
}

// Reserves the space of a new file, whose size stays 0: there is never a file of NULs for a power cut to
// leave behind. Where the file system cannot do that, the C library writes the NULs, if it can, so that a
// full disk shows there, too; `Complete` writes over them.
Result Reserve(int descriptor, std::uint64_t size) {
    if (size == 0) return Result::Success();
    if (const Result result = CheckSizeLimit(size); !result) return result;
    const auto length = static_cast<off_t>(size);
    if (Retry([&] { return fallocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, length); }) == 0) {
        return Result::Success();
    }
    if (errno != EOPNOTSUPP && errno != ENOSYS) return Result::Failure(errno);
    int error;
    do {
        error = posix_fallocate(descriptor, 0, length);
    } while (error == EINTR);
    if (error == 0 || error == EOPNOTSUPP || error == EINVAL) return Result::Success();
    return Result::Failure(error);
}

// Opens the folder of a path for a change that has to be on the disk. Gives no descriptor if it need not.
ValueOr<Descriptor> FolderToSync(const std::string& path, Durability durability) {
    if (durability == Durability::Unsynced) return Descriptor();
    Descriptor folder(
        Retry([&] { return open(Linux::ParentOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!folder) return Result::Failure(errno);
    return folder;
}

Result SyncIfOpen(const Descriptor& folder) {
    return folder ? Linux::Sync(folder.Number()) : Result::Success();
}

class LinuxFileReplacement : public IFileReplacement {
public:
    LinuxFileReplacement(std::string path, std::uint64_t size, Linux::TemporaryFile temporary,
                         Descriptor folder)
        : path(std::move(path)), size(size), temporary(std::move(temporary)), folder(std::move(folder)) {}

    Result Complete(std::string_view data) override {
        if (data.size() != size || completed) return Result::Failure(EINVAL);
        completed = true;
        if (const Result result = Linux::WriteAll(temporary.Number(), data); !result) return result;
        // Of caches, too: a name that is on the disk ahead of the content stands for an empty file, or for
        // half of one, which its readers would stumble over.
        if (const Result result = Linux::Sync(temporary.Number()); !result) return result;
        if (const Result result = temporary.Close(); !result) return result;
        if (const Result result = temporary.RenameTo(path); !result) {
            refused = true;
            return result;
        }
        return SyncIfOpen(folder);
    }

    bool IsRefused() const override { return refused; }

private:
    const std::string path;
    const std::uint64_t size;
    Linux::TemporaryFile temporary;
    Descriptor folder;  // the one to sync; none if the change need not survive a power cut
    bool completed = false;
    bool refused = false;
};

// Success if there is such a folder, also behind a link.
Result CheckFolder(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return Result::Failure(errno);
    return S_ISDIR(status.st_mode) ? Result::Success() : Result::Failure(ENOTDIR);
}

// Makes one folder. One that exists already, or that another process made in between, is a success.
Result MakeFolder(const std::string& path, Durability durability) {
    if (mkdir(path.c_str(), 0700) == 0) {
        // The process's mask may have taken away what the owner needs.
        if (chmod(path.c_str(), 0700) != 0) return Result::Failure(errno);
        const auto parent = FolderToSync(path, durability);
        return parent ? SyncIfOpen(*parent) : Result::Failure(parent.Error());
    }
    const int error = errno;
    const Result found = CheckFolder(path);
    if (found || error != EEXIST) return found ? found : Result::Failure(error);
    // What stands there is no folder, or cannot be looked at; a link that leads nowhere is the former.
    return Result::Failure(found.Error() == ENOENT ? ENOTDIR : found.Error());
}

class LinuxFiles : public IFiles {
public:
    ValueOr<std::string> Read(const std::string& path) override { return Linux::ReadFile(path); }

    ValueOr<FileState> State(const std::string& path) override {
        struct statx status {};
        // Of a file on another machine, what is true there now, as opening it would ask for.
        const int flags = AT_SYMLINK_NOFOLLOW | AT_STATX_FORCE_SYNC;
        if (Retry([&] { return statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS, &status); }) != 0) {
            return Result::Failure(errno);
        }
        if (!S_ISREG(status.stx_mode)) return Result::Failure(Linux::ErrorForKind(status.stx_mode));
        return FileState{.device = std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor,
                         .file = status.stx_ino,
                         .size = status.stx_size,
                         .changed = TimePoint(Duration(status.stx_ctime.tv_sec * TicksPerSecond +
                                                       status.stx_ctime.tv_nsec / 100))};
    }

    ValueOr<std::unique_ptr<IFileReplacement>> BeginReplace(const std::string& path, std::uint64_t size,
                                                            Durability durability) override {
        if (const Result result = CheckReplaceable(path); !result) return result;
        auto folder = FolderToSync(path, durability);
        if (!folder) return Result::Failure(folder.Error());
        auto temporary = Linux::TemporaryFile::CreateBeside(path);
        if (!temporary) return Result::Failure(temporary.Error());
        if (const Result result = Reserve(temporary->Number(), size); !result) return result;
        return std::unique_ptr<IFileReplacement>(
            std::make_unique<LinuxFileReplacement>(path, size, std::move(*temporary), std::move(*folder)));
    }

    Result Remove(const std::string& path, Durability durability) override {
        const auto folder = FolderToSync(path, durability);
        // What cannot be synced goes all the same: who removes a secret must not find it still there.
        if (unlink(path.c_str()) != 0) return Result::Failure(errno);
        return folder ? SyncIfOpen(*folder) : Result::Failure(folder.Error());
    }

    Result Rename(const std::string& from, const std::string& to) override {
        return Outcome(rename(from.c_str(), to.c_str()));
    }

    ValueOr<std::vector<std::string>> List(const std::string& directory) override {
        return Linux::NamesIn(directory);
    }

    Result CreateDirectories(const std::string& directory, Durability durability) override {
        if (CheckFolder(directory)) return Result::Success();
        for (std::size_t end = directory.find('/', 1); end < directory.size();
             end = directory.find('/', end + 1)) {
            if (const Result result = MakeFolder(directory.substr(0, end), durability); !result)
                return result;
        }
        return MakeFolder(directory, durability);
    }
};

}  // namespace

template <>
IFiles& Production<IFiles>() {
    return MadeOnce<LinuxFiles>();
}

}  // namespace Ombry::Platform
