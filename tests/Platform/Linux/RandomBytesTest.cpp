#include "Platform/IRandom.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

class RandomBytesTest : public testing::Test {
protected:
    Platform::IRandom& random = Platform::Production<Platform::IRandom>();
};

TEST_F(RandomBytesTest, BytesAreFilledToTheLastWhateverTheSystemGivesAtATime) {
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

TEST_F(RandomBytesTest, NoBytesAreNoCall) {
    SystemCalls calls;
    EXPECT_TRUE(random.Bytes({}));
    EXPECT_EQ(calls.Count("getrandom"), 0u);
}

TEST_F(RandomBytesTest, SourceThatFailsIsReportedWithItsNumber) {
    Bytes bytes(20, 0);
    SystemCalls calls;
    calls.Fail("getrandom", ENOSYS);
    EXPECT_EQ(random.Bytes(bytes).Error(), ENOSYS);
}

TEST_F(RandomBytesTest, NoIdentityAndNoSeedIsHandedOutThatIsNotRandom) {
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
