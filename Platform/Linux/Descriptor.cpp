#include "Platform/Linux/Descriptor.h"

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

ValueOr<std::string> ReadToEnd(int descriptor, std::size_t expected) {
    // One byte more than expected, so that the end shows without growing or asking once more. What the kernel
    // makes as it is read has no length, and is of one moment only as far as one read goes: a line can slip
    // between two.
    constexpr std::size_t page = 4096;
    std::string content(expected == 0 ? page : expected + 1, '\0');
    std::size_t length = 0;
    for (;;) {
        if (length == content.size()) content.resize(content.size() * 2);
        const std::size_t room = content.size() - length;
        const ssize_t count = Retry([&] { return read(descriptor, content.data() + length, room); });
        if (count < 0) return Result::Failure(errno);
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
        if (static_cast<std::size_t>(count) < room && length == expected) break;
    }
    content.resize(length);
    return content;
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

}  // namespace Ombry::Platform::Linux
