#include "Platform/IRandom.h"
#include "Platform/MadeOnce.h"
#include "Platform/SecureWipe.h"

#include <pthread.h>
#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>

namespace Ombry::Platform {
namespace {

constexpr std::size_t GuidSize = 16;
constexpr std::size_t GuidsOfADraw = 16;

// Random bytes for the next identifiers of a thread: a call of the system costs more than all else about one.
// What was used is wiped, since an identifier may be a secret.
struct DrawnAhead {
    std::array<std::uint8_t, GuidsOfADraw * GuidSize> bytes{};
    std::size_t left = 0;  // identifiers
    unsigned forks = 0;    // when they were drawn
};
thread_local DrawnAhead ahead;

// Forks on the way from the first process to this one. What a child has from before the last is its parent's.
std::atomic<unsigned> forks{0};

class LinuxRandom : public IRandom {
public:
    std::uint32_t SeedWord() override {
        std::array<std::uint8_t, 4> bytes;
        FillOrThrow(bytes);
        return Word(bytes.data());
    }

    Result Bytes(std::span<std::uint8_t> bytes) override {
        std::size_t filled = 0;
        while (filled < bytes.size()) {
            const ssize_t count = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
            if (count < 0) {
                if (errno == EINTR) continue;
                return Result::Failure(errno);
            }
            filled += static_cast<std::size_t>(count);
        }
        return Result::Success();
    }

    Guid NewGuid() override {
        std::array<std::uint8_t, GuidSize> bytes;
        TakeAhead(bytes);
        Guid guid;
        guid.data1 = Word(bytes.data());
        guid.data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
        guid.data3 = static_cast<std::uint16_t>(((bytes[6] << 8 | bytes[7]) & 0x0fff) | 0x4000);  // version 4
        std::copy(bytes.begin() + 8, bytes.end(), guid.data4.begin());
        guid.data4[0] = static_cast<std::uint8_t>((guid.data4[0] & 0x3f) | 0x80);  // variant of RFC 9562
        return guid;
    }

private:
    static std::uint32_t Word(const std::uint8_t* bytes) {
        return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
               static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
    }

    void TakeAhead(std::span<std::uint8_t, GuidSize> bytes) {
        if (ahead.left == 0 || ahead.forks != forks) {
            FillOrThrow(std::span(ahead.bytes).first(guidsOfADraw * GuidSize));
            ahead.left = guidsOfADraw;
            ahead.forks = forks;
        }
        std::uint8_t* const taken = &ahead.bytes[--ahead.left * GuidSize];
        std::copy_n(taken, GuidSize, bytes.begin());
        SecureWipe(taken, GuidSize);
    }

    // What these callers hand out has no room for a failure, and must never be anything but random.
    void FillOrThrow(std::span<std::uint8_t> bytes) {
        if (const Result result = Bytes(bytes); !result) {
            throw std::runtime_error("The system gave no random bytes, error " +
                                     std::to_string(result.Error()));
        }
    }

    // Where forks go unnoticed nothing may be left for a child.
    const std::size_t guidsOfADraw =
        pthread_atfork(nullptr, nullptr, [] { ++forks; }) == 0 ? GuidsOfADraw : 1;
};

}  // namespace

template <>
IRandom& Production<IRandom>() {
    return MadeOnce<LinuxRandom>();
}

}  // namespace Ombry::Platform
