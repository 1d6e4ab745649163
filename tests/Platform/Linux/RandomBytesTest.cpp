#include "Platform/IRandom.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <thread>

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

TEST_F(RandomBytesTest, AThreadDrawsForSixteenIdentitiesAtOnce) {
    std::thread([&] {
        SystemCalls calls;
        for (int i = 0; i < 16; ++i)
            static_cast<void>(random.NewGuid());
        ASSERT_EQ(calls.Count("getrandom"), 1u);
        EXPECT_EQ(calls.Calls()[0].argument, 256);
        static_cast<void>(random.NewGuid());
        EXPECT_EQ(calls.Count("getrandom"), 2u);
    }).join();
}

TEST_F(RandomBytesTest, AForkedProcessRepeatsNoIdentityOfThoseThatItComesFrom) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const auto drawTwenty = [&] {
        for (int i = 0; i < 20; ++i) {
            const Platform::Guid guid = random.NewGuid();
            if (write(ends[1], &guid, sizeof guid) != sizeof guid) std::_Exit(1);
        }
    };
    // A thread that has something left when it forks, and so has the child when it does.
    std::thread([&] {
        drawTwenty();
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            drawTwenty();
            const pid_t grandchild = fork();
            drawTwenty();
            int status = 0;
            if (grandchild > 0) waitpid(grandchild, &status, 0);
            std::_Exit(grandchild < 0 || status != 0 ? 1 : 0);
        }
        drawTwenty();
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }).join();
    close(ends[1]);
    std::set<std::string> seen;
    std::size_t count = 0;
    std::string identity(sizeof(Platform::Guid), '\0');
    for (; read(ends[0], identity.data(), identity.size()) == static_cast<ssize_t>(identity.size()); ++count)
        seen.insert(identity);
    close(ends[0]);
    EXPECT_EQ(count, 100u);
    EXPECT_EQ(seen.size(), count);
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
    // A thread that has drawn for none ahead.
    std::thread([&] {
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(textOf([&] { static_cast<void>(random.NewGuid()); }), expected);
    }).join();
    EXPECT_EQ(textOf([&] { static_cast<void>(random.SeedWord()); }), expected);
}

}  // namespace
}  // namespace Ombry::Tests
