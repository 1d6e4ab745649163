#include "tests/Platform/Linux/SystemCalls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <utility>

namespace Ombry::Tests {
namespace {

thread_local SystemCalls* watching = nullptr;

/// The C library's function behind a wrapper of the same name.
template <class Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int Watch(const char* name, const char* text, long long argument) {
    // Not watched while it is being recorded: what the recording itself calls is nobody's business.
    SystemCalls* const watcher = std::exchange(watching, nullptr);
    const int error = watcher ? watcher->Record({name, text ? text : "", argument}) : 0;
    watching = watcher;
    return error;
}

std::size_t Limited(std::size_t length) {
    return watching ? std::min(length, watching->TransferLimit()) : length;
}

int Shortened(int milliseconds) {
    return watching && watching->WaitsExpire() ? 0 : milliseconds;
}

}  // namespace

SystemCalls::SystemCalls() {
    watching = this;
}

SystemCalls::~SystemCalls() {
    watching = nullptr;
}

int SystemCalls::Record(Call call) {
    calls.push_back(call);
    if (before) before(call);
    if (calls.size() == failAt) return failAtError;
    if (call.name == failName && failTimes > 0) {
        --failTimes;
        return failError;
    }
    return 0;
}

std::vector<std::string> SystemCalls::Names() const {
    std::vector<std::string> names;
    for (const Call& call : calls)
        names.push_back(call.name);
    return names;
}

std::size_t SystemCalls::Count(const std::string& name) const {
    return static_cast<std::size_t>(
        std::count_if(calls.begin(), calls.end(), [&](const Call& call) { return call.name == name; }));
}

}  // namespace Ombry::Tests

// Wrappers that stand before the C library's functions of the same names, since the executable's own symbols
// are found first.
#define WATCHED(name, text, argument, failed, ...)                      \
    if (const int error = Ombry::Tests::Watch(#name, text, argument)) { \
        errno = error;                                                  \
        return failed;                                                  \
    }                                                                   \
    static const auto real = Ombry::Tests::Real<decltype(name)>(#name); \
    return real(__VA_ARGS__)

extern "C" {

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    WATCHED(open, path, flags, -1, path, flags, mode);
}

int close(int descriptor) {
    if (const int error = Ombry::Tests::Watch("close", nullptr, descriptor)) {
        // The system closes a descriptor whatever it says.
        static_cast<void>(Ombry::Tests::Real<decltype(close)>("close")(descriptor));
        errno = error;
        return -1;
    }
    static const auto real = Ombry::Tests::Real<decltype(close)>("close");
    return real(descriptor);
}

int fallocate(int descriptor, int mode, off_t offset, off_t length) {
    WATCHED(fallocate, nullptr, length, -1, descriptor, mode, offset, length);
}
int posix_fallocate(int descriptor, off_t offset, off_t length) {
    if (const int error = Ombry::Tests::Watch("posix_fallocate", nullptr, length)) return error;
    static const auto real = Ombry::Tests::Real<decltype(posix_fallocate)>("posix_fallocate");
    return real(descriptor, offset, length);
}

ssize_t write(int descriptor, const void* data, size_t length) {
    WATCHED(write, nullptr, descriptor, -1, descriptor, data, Ombry::Tests::Limited(length));
}
ssize_t read(int descriptor, void* data, size_t length) {
    WATCHED(read, nullptr, descriptor, -1, descriptor, data, Ombry::Tests::Limited(length));
}
int fstat(int descriptor, struct stat* status) noexcept {
    WATCHED(fstat, nullptr, descriptor, -1, descriptor, status);
}
int fcntl(int descriptor, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);  // a number comes as wide as a pointer
    va_end(arguments);
    WATCHED(fcntl, nullptr, command, -1, descriptor, command, argument);
}
int fsync(int descriptor) {
    WATCHED(fsync, nullptr, descriptor, -1, descriptor);
}
int fchmod(int descriptor, mode_t mode) noexcept {
    WATCHED(fchmod, nullptr, mode, -1, descriptor, mode);
}
int chmod(const char* path, mode_t mode) noexcept {
    WATCHED(chmod, path, mode, -1, path, mode);
}
int mkdir(const char* path, mode_t mode) noexcept {
    WATCHED(mkdir, path, mode, -1, path, mode);
}
int rename(const char* from, const char* to) noexcept {
    WATCHED(rename, to, -1, -1, from, to);
}
int link(const char* from, const char* to) noexcept {
    WATCHED(link, to, -1, -1, from, to);
}
int statx(int folder, const char* path, int flags, unsigned mask, struct statx* status) noexcept {
    WATCHED(statx, path, flags, -1, folder, path, flags, mask, status);
}
int unlink(const char* path) noexcept {
    WATCHED(unlink, path, -1, -1, path);
}
int flock(int descriptor, int operation) noexcept {
    WATCHED(flock, nullptr, operation, -1, descriptor, operation);
}
int poll(pollfd* entries, nfds_t count, int milliseconds) {
    WATCHED(poll, nullptr, milliseconds, -1, entries, count, Ombry::Tests::Shortened(milliseconds));
}
int socket(int family, int type, int protocol) noexcept {
    WATCHED(socket, nullptr, type, -1, family, type, protocol);
}
int setsockopt(int descriptor, int level, int name, const void* value, socklen_t length) noexcept {
    WATCHED(setsockopt, nullptr, name, -1, descriptor, level, name, value, length);
}
int connect(int descriptor, const sockaddr* address, socklen_t length) {
    WATCHED(connect, nullptr, descriptor, -1, descriptor, address, length);
}
ssize_t recv(int descriptor, void* data, size_t length, int flags) {
    WATCHED(recv, nullptr, flags, -1, descriptor, data, length, flags);
}
ssize_t send(int descriptor, const void* data, size_t length, int flags) {
    WATCHED(send, nullptr, flags, -1, descriptor, data, length, flags);
}
ssize_t getrandom(void* data, size_t length, unsigned flags) {
    WATCHED(getrandom, nullptr, static_cast<long long>(length), -1, data, Ombry::Tests::Limited(length),
            flags);
}
int clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left) {
    if (const int error =
            Ombry::Tests::Watch("clock_nanosleep", std::to_string(until->tv_sec).c_str(), until->tv_nsec)) {
        return error;
    }
    static const auto real = Ombry::Tests::Real<decltype(clock_nanosleep)>("clock_nanosleep");
    return real(clock, flags, until, left);
}
DIR* opendir(const char* path) {
    WATCHED(opendir, path, -1, nullptr, path);
}
dirent* readdir(DIR* folder) {
    WATCHED(readdir, nullptr, -1, nullptr, folder);
}
int mlock(const void* address, size_t length) noexcept {
    WATCHED(mlock, nullptr, static_cast<long long>(length), -1, address, length);
}
int munmap(void* address, size_t length) noexcept {
    WATCHED(munmap, nullptr, reinterpret_cast<long long>(address), -1, address, length);
}
int madvise(void* address, size_t length, int advice) noexcept {
    WATCHED(madvise, nullptr, advice, -1, address, length, advice);
}

}  // extern "C"

#undef WATCHED
