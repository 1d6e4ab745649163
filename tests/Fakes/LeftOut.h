#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <string>

namespace Ombry::Tests {

/// Leaves the running test out, because this machine cannot run it: scripts/test names it and counts it
/// apart. The caller returns from its body; called in `SetUp`, the body is not begun.
inline void LeaveOut(const std::string& reason) {
    testing::Test::RecordProperty("skipped_because", reason);  // the result file has no place of its own
    GTEST_SKIP() << reason;
}

/// Whether this process can use that much memory without harm to its neighbours; leaves the test out
/// if not. Under a sanitizer it never can: what memory is needed there is many times as much.
inline bool HasMemoryFor(std::uint64_t bytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static_cast<void>(bytes);
    LeaveOut("needs more memory than a sanitizer leaves");
    return false;
#else
    constexpr std::uint64_t headroom = 1'000'000'000;
    std::ifstream lines("/proc/meminfo");
    std::string name;
    std::uint64_t kilobytes = 0;
    while (lines >> name >> kilobytes && name != "MemAvailable:")
        lines.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    if (kilobytes * 1024 >= bytes + headroom) return true;
    LeaveOut("needs " + std::to_string(bytes >> 20) + " MiB of memory, and " +
             std::to_string(kilobytes >> 10) + " are available");
    return false;
#endif
}

}  // namespace Ombry::Tests
