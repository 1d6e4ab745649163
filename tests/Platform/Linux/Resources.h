#pragma once

#include <sys/stat.h>

#include <filesystem>

namespace Ombry::Tests {

/// Descriptors that this process has open.
inline std::size_t OpenDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

/// Permission bits of a file or a folder.
inline unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0xFFFFu;
}

/// A file mode creation mask for a scope.
class Mask {
public:
    explicit Mask(mode_t mask) : previous(umask(mask)) {}
    ~Mask() { umask(previous); }
    Mask(const Mask&) = delete;
    Mask& operator=(const Mask&) = delete;

private:
    const mode_t previous;
};

}  // namespace Ombry::Tests
