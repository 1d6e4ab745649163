#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Result.h"

namespace Ombry::Platform::Linux {

/// Owns one file descriptor.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number(number) {}
    ~Descriptor() {
        if (number >= 0) close(number);
    }
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    explicit operator bool() const { return number >= 0; }
    int Number() const { return number; }

    /// Closes now and tells what the system says: some file systems report a failed write only here. After
    /// EINTR the descriptor is closed all the same.
    Result Close() {
        if (close(std::exchange(number, -1)) == 0 || errno == EINTR) return Result::Success();
        return Result::Failure(errno);
    }

private:
    int number;
};

/// Repeats a system call that a signal interrupted.
template <class Call>
auto Retry(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

/// Success for 0, otherwise the failure with `errno`.
inline Result Outcome(int returned) {
    return returned == 0 ? Result::Success() : Result::Failure(errno);
}

/// Whether a file could not be read because there is none, or something else in its place: another try ends
/// the same way. Any other failure may be one of the moment, and says nothing of the file.
inline bool MeansNoFile(int error) {
    return error == ENOENT || error == ENOTDIR || error == EISDIR || error == ELOOP || error == EINVAL ||
           error == ENXIO;
}

Result WriteAll(int descriptor, std::string_view data);

/// Puts the content of a file or a folder on the disk. A file system that knows no such thing is a success.
Result Sync(int descriptor);

/// The folder that holds `path`, "." for a bare name.
std::string ParentOf(const std::string& path);

/// A new private file that has no other user: made beside its target, under a name that nobody can foresee,
/// and removed with this object unless it was given its final name.
class TemporaryFile {
public:
    static ValueOr<TemporaryFile> CreateBeside(const std::string& target);

    TemporaryFile(TemporaryFile&& other) noexcept
        : descriptor(std::move(other.descriptor)), path(std::exchange(other.path, {})) {}
    TemporaryFile& operator=(TemporaryFile&&) = delete;
    ~TemporaryFile() {
        if (!path.empty()) unlink(path.c_str());
    }

    int Number() const { return descriptor.Number(); }
    Result Close() { return descriptor.Close(); }

    /// Takes the place of `target`, whatever is there.
    Result RenameTo(const std::string& target);
    /// Becomes `target`; fails with EEXIST if there is such a file already.
    Result LinkTo(const std::string& target) const { return Outcome(link(path.c_str(), target.c_str())); }

private:
    TemporaryFile(Descriptor descriptor, std::string path)
        : descriptor(std::move(descriptor)), path(std::move(path)) {}

    Descriptor descriptor;
    std::string path;  // empty once renamed
};

}  // namespace Ombry::Platform::Linux
