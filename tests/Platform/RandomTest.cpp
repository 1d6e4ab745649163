#include "Platform/IRandom.h"
#include "tests/Platform/SystemCalls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

class RandomTest : public testing::Test {
protected:
    Platform::IRandom& random = Platform::Production<Platform::IRandom>();
};

TEST_F(RandomTest, BytesAreFilledToTheLastWhateverTheSystemGivesAtATime) {
    // Of 20 bytes no draw leaves the same places empty 40 times.
    Bytes seen(20, 0);
    for (int draw = 0; draw < 40; ++draw) {
        Bytes bytes(20, 0);
        SystemCalls calls;
        calls.Fail("getrandom", EINTR, 2);
        calls.LimitTransfers(7);
        ASSERT_TRUE(random.Bytes(bytes));
        ASSERT_EQ(calls.Count("getrandom"), 5u);
        EXPECT_EQ(calls.Calls()[2].argument, 20);
        EXPECT_EQ(calls.Calls()[3].argument, 13);
        EXPECT_EQ(calls.Calls()[4].argument, 6);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            seen[i] |= bytes[i];
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 0), 0);
}

TEST_F(RandomTest, NoBytesAreNoCall) {
    SystemCalls calls;
    EXPECT_TRUE(random.Bytes({}));
    EXPECT_EQ(calls.Count("getrandom"), 0u);
}

TEST_F(RandomTest, SourceThatFailsIsReportedWithItsNumber) {
    Bytes bytes(20, 0);
    SystemCalls calls;
    calls.Fail("getrandom", ENOSYS);
    EXPECT_EQ(random.Bytes(bytes).Error(), ENOSYS);
}

TEST_F(RandomTest, GuidsAreOfVersionFourAndOfTheUsualVariantAndDiffer) {
    std::set<std::string> seen;
    std::uint32_t first = 0;
    std::uint16_t second = 0, third = 0;
    std::array<std::uint8_t, 8> last{};
    for (int i = 0; i < 200; ++i) {
        const Platform::Guid guid = random.NewGuid();
        EXPECT_EQ(guid.data3 >> 12, 4);
        EXPECT_EQ(guid.data4[0] >> 6, 2);
        first |= guid.data1;
        second |= guid.data2;
        third |= guid.data3;
        for (std::size_t at = 0; at < last.size(); ++at)
            last[at] |= guid.data4[at];
        seen.insert(std::to_string(guid.data1) + "-" + std::to_string(guid.data2));
    }
    EXPECT_GT(seen.size(), 100u);
    // Every bit that is drawn was set in one of 200 draws.
    EXPECT_EQ(first, 0xFFFFFFFFu);
    EXPECT_EQ(second, 0xFFFFu);
    EXPECT_EQ(third, 0x4FFFu);
    EXPECT_EQ(last[0], 0xBFu);
    for (std::size_t at = 1; at < last.size(); ++at)
        EXPECT_EQ(last[at], 0xFFu);
}

TEST_F(RandomTest, SeedWordsUseAllTheirBits) {
    std::uint32_t bits = 0;
    for (int i = 0; i < 200; ++i)
        bits |= random.SeedWord();
    EXPECT_EQ(bits, 0xFFFFFFFFu);
}

TEST_F(RandomTest, NoIdentityAndNoSeedIsHandedOutThatIsNotRandom) {
    const auto textOf = [](const auto& call) -> std::string {
        SystemCalls calls;
        calls.Fail("getrandom", ENOSYS, 100);
        try {
            call();
            return "nothing thrown";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    const std::string expected = "The system gave no random bytes, error " + std::to_string(ENOSYS);
    EXPECT_EQ(textOf([&] { static_cast<void>(random.NewGuid()); }), expected);
    EXPECT_EQ(textOf([&] { static_cast<void>(random.SeedWord()); }), expected);
}

}  // namespace
}  // namespace Ombry::Tests
