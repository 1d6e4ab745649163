// Lengths at which the 32-bit counts of the JSON library would wrap.

#include "tests/Fakes/LeftOut.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <new>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

/// The writer reserves six bytes for each of a string's and two for its quotes, counted in 32 bits.
constexpr std::uint64_t LongestString = 715'827'882;
/// The reader counts in 31 bits the digits behind a point, together with an exponent of nine digits.
constexpr std::uint64_t ShortestRefusedText = 1'073'741'825;

/// Keeps this process from growing by more than `bytes` while it lives.
class LimitedAddressSpace {
public:
    explicit LimitedAddressSpace(rlim_t bytes) {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        getrlimit(RLIMIT_AS, &before);
        const rlimit limited{pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + bytes, before.rlim_max};
        setrlimit(RLIMIT_AS, &limited);
    }
    ~LimitedAddressSpace() { setrlimit(RLIMIT_AS, &before); }

private:
    rlimit before{};
};

std::string LengthError(std::string& value) {
    const auto serializer = CreateJSONSerializer();
    serializer->Begin();
    try {
        serializer->Field(nullptr, value, nullptr);
    } catch (const std::length_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST(JSONLargeTextTest, AStringThatTheWriterCannotReserveForIsALengthError) {
    if (!HasMemoryFor(LongestString)) return;
    std::string value(LongestString + 1, 'x');
    EXPECT_EQ(LengthError(value), "A string of 715827883 bytes is too long for JSON.");
}

TEST(JSONLargeTextTest, ForTheLongestStringTheWriterReservesInFull) {
    if (!HasMemoryFor(LongestString)) return;
    std::string value(LongestString, 'x');
    const auto serializer = CreateJSONSerializer();
    serializer->Begin();
    // To write it takes an unoptimised build most of a minute. That the four gigabytes are asked for is seen
    // as well from their refusal.
    const LimitedAddressSpace noFourGigabytes(2'000'000'000);
    EXPECT_THROW(serializer->Field(nullptr, value, nullptr), std::bad_alloc);
}

TEST(JSONLargeTextTest, WhatIsLongerThanA32BitCountIsNeitherWrittenNorRead) {
    constexpr std::uint64_t Long = 4'294'967'301;  // 5 for one who counts in 32 bits
    if (!HasMemoryFor(Long)) return;
    std::string text(Long, 'x');
    EXPECT_EQ(LengthError(text), "A string of 4294967301 bytes is too long for JSON.");
    EXPECT_EQ(FailureOf([&] { CreateJSONDeserializer(false)->Begin(text); }),
              "ERROR: A text of 4294967301 bytes is too long to be parsed.");
    text.resize(ShortestRefusedText);
    EXPECT_EQ(FailureOf([&] { CreateJSONDeserializer(false)->Begin(text); }),
              "ERROR: A text of 1073741825 bytes is too long to be parsed.");
}

}  // namespace
}  // namespace Ombry::Tests
