#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>

namespace Ombry::Tests {

/// Says that the running test was left out and why, where whoever runs it sees it: on the standard output,
/// and in the result file, from which scripts/test takes it into its totals.
inline void ReportLeftOut(const std::string& reason) {
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    std::cout << "LEFT OUT: " << test.test_suite_name() << "." << test.name() << ": " << reason << std::endl;
    ::testing::Test::RecordProperty("left_out", reason);
}

/// Whether this process can use that much memory without harm to its neighbours; reports the test as left out
/// if not. Under a sanitizer it never can: what memory is needed there is many times as much.
inline bool HasMemoryFor(std::uint64_t bytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    ReportLeftOut("needs more memory than a sanitizer leaves");
    return bytes == 0;
#else
    constexpr std::uint64_t headroom = 1'000'000'000;
    std::ifstream lines("/proc/meminfo");
    std::string name;
    std::uint64_t kilobytes = 0;
    while (lines >> name >> kilobytes && name != "MemAvailable:")
        lines.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    if (kilobytes * 1024 >= bytes + headroom) return true;
    ReportLeftOut("needs " + std::to_string(bytes >> 20) + " MiB of memory, and " +
                  std::to_string(kilobytes >> 10) + " are available");
    return false;
#endif
}

}  // namespace Ombry::Tests
