#include "Platform/Linux/FileReading.h"

#include "Platform/Linux/Descriptor.h"

#include <dirent.h>
#include <sys/stat.h>

#include <memory>
#include <string_view>

namespace Ombry::Platform::Linux {

int ErrorForKind(mode_t mode) {
    if (S_ISDIR(mode)) return EISDIR;
    return S_ISLNK(mode) ? ELOOP : EINVAL;
}

ValueOr<std::string> ReadFile(const std::string& path, std::uint64_t longest) {
    // Non-blocking only matters for a named pipe, which would wait for a writer before it can be refused.
    const Descriptor file(
        Retry([&] { return open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    if (!file) return Result::Failure(errno);
    struct stat status {};
    if (fstat(file.Number(), &status) != 0) return Result::Failure(errno);
    if (!S_ISREG(status.st_mode)) return Result::Failure(ErrorForKind(status.st_mode));
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > longest) return Result::Failure(EINVAL);
    return ReadToEnd(file.Number(), size);
}

ValueOr<std::vector<std::string>> NamesIn(const std::string& folder, std::size_t most) {
    DIR* opened;
    do {
        opened = opendir(folder.c_str());
    } while (!opened && errno == EINTR);
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opened, closedir);
    if (!open) return Result::Failure(errno);
    std::vector<std::string> names;
    errno = 0;
    while (names.size() < most) {
        const dirent* const entry = readdir(open.get());
        if (!entry) break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0) return Result::Failure(errno);
    return names;
}

}  // namespace Ombry::Platform::Linux
