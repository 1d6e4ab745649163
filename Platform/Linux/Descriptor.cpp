#include "Platform/Linux/Descriptor.h"

#include <sys/random.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>

namespace Ombry::Platform::Linux {

Result WriteAll(int descriptor, std::string_view data) {
    while (!data.empty()) {
        const ssize_t count = Retry([&] { return write(descriptor, data.data(), data.size()); });
        if (count < 0) return Result::Failure(errno);
        if (count == 0) return Result::Failure(EIO);
        data.remove_prefix(static_cast<std::size_t>(count));
    }
    return Result::Success();
}

Result Sync(int descriptor) {
    if (Retry([&] { return fsync(descriptor); }) == 0 || errno == EINVAL) return Result::Success();
    return Result::Failure(errno);
}

std::string ParentOf(const std::string& path) {
    const std::size_t separator = path.rfind('/');
    if (separator == std::string::npos) return ".";
    return separator == 0 ? "/" : path.substr(0, separator);
}

ValueOr<TemporaryFile> TemporaryFile::CreateBeside(const std::string& target) {
    // The name does not grow with the target's, which may already be as long as the system allows.
    for (;;) {
        std::uint64_t chance = 0;
        if (Retry([&] { return getrandom(&chance, sizeof chance, 0); }) != sizeof chance) {
            return Result::Failure(errno);
        }
        char name[32];
        std::snprintf(name, sizeof name, "/.%016llx.tmp", static_cast<unsigned long long>(chance));
        std::string path = ParentOf(target) + name;
        Descriptor descriptor(Retry(
            [&] { return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600); }));
        if (!descriptor) {
            if (errno == EEXIST) continue;
            return Result::Failure(errno);
        }
        TemporaryFile file(std::move(descriptor), std::move(path));
        // The process's mask may have taken more away than others' access.
        if (fchmod(file.Number(), 0600) != 0) return Result::Failure(errno);
        return file;
    }
}

Result TemporaryFile::RenameTo(const std::string& target) {
    if (rename(path.c_str(), target.c_str()) != 0) return Result::Failure(errno);
    path.clear();
    return Result::Success();
}

}  // namespace Ombry::Platform::Linux
