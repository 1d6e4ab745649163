#pragma once

#include "Platform/Result.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

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

/// Everything up to the end of a file, in one piece of memory if it is as long as expected.
ValueOr<std::string> ReadToEnd(int descriptor, std::size_t expected);

/// Puts the content of a file or a folder on the disk. A file system that knows no such thing is a success.
Result Sync(int descriptor);

/// The folder that holds `path`, "." for a bare name.
std::string ParentOf(const std::string& path);

}  // namespace Ombry::Platform::Linux
