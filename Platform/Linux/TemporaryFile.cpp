#include "Platform/Linux/TemporaryFile.h"

#include "Platform/IFiles.h"
#include "Platform/MadeOnce.h"
#include "Platform/TemporaryName.h"

#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>

namespace Ombry::Platform::Linux {
namespace {

constexpr int MostTries = 100;

std::string NameOf(std::uint64_t chance) {
    char digits[TemporaryNameDigits + 1];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(chance));
    return std::string(TemporaryNameBegin).append(digits).append(TemporaryNameEnd);
}

// Whether locking failed because this file system has no locks. Then nobody can hold one, either.
bool MeansNoLocks(int error) {
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS || error == EINVAL;
}

// Removes a temporary file if its lock can be had. One that lost its name meanwhile is locked for nothing.
void RemoveIfAbandoned(const std::string& path) {
    // For writing, because some network file systems lock no other descriptor.
    const Descriptor file(
        Retry([&] { return open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    struct stat status {};
    if (!file || fstat(file.Number(), &status) != 0) return;
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) return;
    if (flock(file.Number(), LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
}

struct VisitedFolders {
    std::mutex mutex;
    std::set<std::string> folders;  // guarded by mutex
};

}  // namespace

ValueOr<TemporaryFile> TemporaryFile::CreateBeside(const std::string& target) {
    const std::string folder = ParentOf(target);
    RemoveLeftoversOnce(folder);
    // Somebody who sweeps takes one of them at the most; a file system whose locks are all held takes each.
    for (int tries = 0; tries < MostTries; ++tries) {
        std::uint64_t chance = 0;
        if (Retry([&] { return getrandom(&chance, sizeof chance, 0); }) != sizeof chance) {
            return Result::Failure(errno);
        }
        std::string path = folder + "/" + NameOf(chance);
        Descriptor descriptor(Retry(
            [&] { return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600); }));
        if (!descriptor) {
            if (errno == EEXIST) continue;
            return Result::Failure(errno);
        }
        TemporaryFile file(std::move(descriptor), std::move(path));
        const auto claimed = file.Claim();
        if (!claimed) return Result::Failure(claimed.Error());
        if (*claimed) return file;
    }
    return Result::Failure(EWOULDBLOCK);
}

ValueOr<bool> TemporaryFile::Claim() {
    // Between its making and its locking the file looks abandoned. Whoever took it for that holds its lock,
    // or has removed its name by the time that the lock is ours.
    if (Retry([&] { return flock(Number(), LOCK_EX | LOCK_NB); }) != 0) {
        if (errno == EWOULDBLOCK) return false;
        if (!MeansNoLocks(errno)) return Result::Failure(errno);
    }
    struct stat status {};
    if (fstat(Number(), &status) != 0) return Result::Failure(errno);
    if (status.st_nlink == 0) return false;
    // The process's mask may have taken more away than others' access.
    if ((status.st_mode & 07777) != 0600 && fchmod(Number(), 0600) != 0) return Result::Failure(errno);
    lock = Descriptor(fcntl(Number(), F_DUPFD_CLOEXEC, 0));
    if (!lock) return Result::Failure(errno);
    return true;
}

Result TemporaryFile::RenameTo(const std::string& target) {
    if (rename(path.c_str(), target.c_str()) != 0) return Result::Failure(errno);
    path.clear();
    return Result::Success();
}

void RemoveLeftovers(const std::string& folder) {
    const auto names = Production<IFiles>().List(folder);
    if (!names) return;
    for (const std::string& name : *names) {
        if (IsTemporaryName<char>(name)) RemoveIfAbandoned(folder + "/" + name);
    }
}

void RemoveLeftoversOnce(const std::string& folder) {
    VisitedFolders& visited = MadeOnce<VisitedFolders>();
    {
        const std::lock_guard guard(visited.mutex);
        if (!visited.folders.insert(folder).second) return;
    }
    RemoveLeftovers(folder);
}

}  // namespace Ombry::Platform::Linux
