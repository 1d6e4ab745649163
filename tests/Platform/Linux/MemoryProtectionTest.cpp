#include "Platform/IMemoryProtection.h"
#include "Platform/IRandom.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/Linux/CryptoFaults.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <openssl/err.h>

#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <thread>
#include <utility>

namespace Ombry::Tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

class MemoryProtectionTest : public testing::Test {
protected:
    static Bytes Counting(std::size_t size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
        return bytes;
    }

    Platform::IMemoryProtection& protection = Platform::MemoryProtection();
};

TEST_F(MemoryProtectionTest, UnprotectGivesBackWhatWasProtectedAtTheSameLength) {
    for (const std::size_t size : {16, 32, 48, 4096, (1 << 20) - 16, 1 << 20, (1 << 20) + 16, 3 << 20}) {
        Bytes bytes = Counting(size);
        ASSERT_TRUE(protection.Protect(bytes, 0)) << size;
        EXPECT_NE(bytes, Counting(size)) << size;
        ASSERT_TRUE(protection.Unprotect(bytes, 0)) << size;
        EXPECT_EQ(bytes, Counting(size)) << size;
    }
}

TEST_F(MemoryProtectionTest, LargerThanOneUnitOfTheCipherIsProtected) {
    Bytes bytes((std::size_t{17} << 20), 7);
    ASSERT_TRUE(protection.Protect(bytes, 0));
    // No unit repeats another, though the plain text does.
    EXPECT_FALSE(std::equal(bytes.begin(), bytes.begin() + 64, bytes.begin() + (1 << 20)));
    EXPECT_FALSE(std::equal(bytes.begin(), bytes.begin() + 16, bytes.begin() + 16));
    ASSERT_TRUE(protection.Unprotect(bytes, 0));
    EXPECT_EQ(bytes, Bytes(bytes.size(), 7));
}

TEST_F(MemoryProtectionTest, KeyStreamIsNotReused) {
    // With a key stream the difference of two protected texts would be that of the plain texts.
    Bytes zeros(16, 0);
    Bytes ones(16, 1);
    ASSERT_TRUE(protection.Protect(zeros, 0));
    ASSERT_TRUE(protection.Protect(ones, 0));
    Bytes difference(16);
    for (std::size_t i = 0; i < 16; ++i)
        difference[i] = zeros[i] ^ ones[i];
    EXPECT_NE(difference, Bytes(16, 1));
}

TEST_F(MemoryProtectionTest, ChangedByteSpoilsItsWholeBlockAndNoOther) {
    Bytes bytes = Counting(48);
    ASSERT_TRUE(protection.Protect(bytes, 0));
    bytes[20] ^= 1;
    ASSERT_TRUE(protection.Unprotect(bytes, 0));
    const Bytes plain = Counting(48);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + 16, plain.begin()));
    EXPECT_TRUE(std::equal(bytes.begin() + 32, bytes.end(), plain.begin() + 32));
    int equal = 0;
    for (std::size_t i = 16; i < 32; ++i)
        equal += bytes[i] == plain[i] ? 1 : 0;
    EXPECT_LT(equal, 8);
}

TEST_F(MemoryProtectionTest, FlagsOfWiderCirclesUseTheProcessKeyToo) {
    for (const std::uint32_t flags : {0u, 1u, 2u}) {
        Bytes bytes = Counting(16);
        ASSERT_TRUE(protection.Protect(bytes, flags));
        EXPECT_NE(bytes, Counting(16));
        ASSERT_TRUE(protection.Unprotect(bytes, flags));
        EXPECT_EQ(bytes, Counting(16));
    }
}

TEST_F(MemoryProtectionTest, AllThreadsShareOneKey) {
    std::vector<Bytes> results(8, Counting(64));
    std::vector<std::thread> threads;
    for (Bytes& result : results) {
        threads.emplace_back([&] { EXPECT_TRUE(protection.Protect(result, 0)); });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const Bytes& result : results)
        EXPECT_EQ(result, results.front());
}

TEST_F(MemoryProtectionTest, NothingStaysInTheErrorQueue) {
    Bytes bytes = Counting(16);
    ASSERT_TRUE(protection.Protect(bytes, 0));
    EXPECT_EQ(protection.Protect(std::span(bytes).first(15), 0).Error(), 87);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

// What happens when the key is made can be seen only in a process that has none yet.
class MemoryProtectionDeathTest : public MemoryProtectionTest {
protected:
    MemoryProtectionDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// Chance that gives its bytes and then does what a test wants, to the point of failing.
    class LateRandom : public FakeRandom {
    public:
        explicit LateRandom(std::function<Platform::Result()> then) : then(std::move(then)) {}
        Platform::Result Bytes(std::span<std::uint8_t> bytes) override {
            const Platform::Result given = FakeRandom::Bytes(bytes);
            return given ? then() : given;
        }

    private:
        const std::function<Platform::Result()> then;
    };

    /// How many keys were given back to the system, and whether each was wiped before.
    struct GivenBack {
        int keys = 0;
        bool wiped = true;

        void Look(const SystemCalls::Call& call) {
            if (call.name != "munmap") return;
            ++keys;
            const auto* const page = reinterpret_cast<const std::uint8_t*>(call.argument);
            wiped = wiped && std::all_of(page, page + 64, [](std::uint8_t byte) { return byte == 0; });
        }
    };

    [[noreturn]] static void Leave(bool passed) { std::_Exit(passed ? 0 : 1); }
};

TEST_F(MemoryProtectionDeathTest, KeyIsRandomLockedAndNeverDumpedAndMadeOnce) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            SystemCalls calls;
            bool passed = bool(protection.Protect(bytes, 0));
            for (const auto& call : calls.Calls()) {
                if (call.name == "mlock") passed = passed && call.argument == 64;
                if (call.name == "madvise") passed = passed && call.argument == MADV_DONTDUMP;
                if (call.name == "getrandom") passed = passed && call.argument == 64;
            }
            passed = passed && calls.Count("getrandom") == 1;
            passed = passed && protection.Unprotect(bytes, 0) && bytes == Counting(16);
            Leave(passed && calls.Count("mlock") == 1 && calls.Count("madvise") == 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionDeathTest, KeyThatCannotBeMadeFailsTheCallAndTheNextTriesAgain) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            FakeRandom random;
            random.FailBytes(ENOSYS);
            bool passed = false;
            {
                Platform::Testing::Replace<Platform::IRandom> replaced(random);
                passed = protection.Protect(bytes, 0).Error() == ENOSYS &&
                         protection.Unprotect(bytes, 0).Error() == ENOSYS && bytes == Counting(16);
            }
            passed = passed && protection.Protect(bytes, 0) && bytes != Counting(16);
            Leave(passed && protection.Unprotect(bytes, 0) && bytes == Counting(16));
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionDeathTest, ProcessThatMayNotLockMemoryIsProtectedAllTheSame) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            SystemCalls calls;
            calls.Fail("mlock", EPERM);
            Leave(protection.Protect(bytes, 0) && bytes != Counting(16) && calls.Count("madvise") == 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionDeathTest, WithoutAPageForTheKeyTheCallFailsAndTheNextTriesAgain) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            rlimit memory{};
            getrlimit(RLIMIT_AS, &memory);
            rlimit nothingMore = memory;
            nothingMore.rlim_cur = 0;
            setrlimit(RLIMIT_AS, &nothingMore);
            const Platform::Result refused = protection.Protect(bytes, 0);
            setrlimit(RLIMIT_AS, &memory);
            const bool failed = refused.Error() == ENOMEM && bytes == Counting(16);
            Leave(failed && protection.Protect(bytes, 0) && bytes != Counting(16));
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionDeathTest, KeyThatIsNotUsedIsWipedWhereMakingItFailed) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            LateRandom random([] { return Platform::Result::Failure(ENOSYS); });
            const Platform::Testing::Replace<Platform::IRandom> replaced(random);
            GivenBack given;
            SystemCalls calls;
            calls.Before([&](const SystemCalls::Call& call) { given.Look(call); });
            const bool failed = protection.Protect(bytes, 0).Error() == ENOSYS;
            Leave(failed && given.keys == 1 && given.wiped);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionDeathTest, KeyThatIsNotUsedIsWipedWhereAnotherThreadWasFaster) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            Bytes ofOther = Counting(16);
            bool first = true;
            LateRandom random([&] {
                if (std::exchange(first, false)) {
                    std::thread([&] { static_cast<void>(protection.Protect(ofOther, 0)); }).join();
                }
                return Platform::Result::Success();
            });
            const Platform::Testing::Replace<Platform::IRandom> replaced(random);
            GivenBack given;
            SystemCalls calls;
            calls.Before([&](const SystemCalls::Call& call) { given.Look(call); });
            const bool protects = bool(protection.Protect(bytes, 0));
            Leave(protects && bytes == ofOther && given.keys == 1 && given.wiped);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionDeathTest, AlgorithmThatAnotherThreadFoundFirstIsUsed) {
    EXPECT_EXIT(
        {
            Bytes bytes = Counting(16);
            Bytes ofOther = Counting(16);
            // The first call to the library is the one that looks the algorithm up.
            const BeforeCryptoCall other(
                [&] { std::thread([&] { static_cast<void>(protection.Protect(ofOther, 0)); }).join(); });
            const bool protects = bool(protection.Protect(bytes, 0));
            Leave(protects && bytes == ofOther && bytes != Counting(16) && protection.Unprotect(bytes, 0) &&
                  bytes == Counting(16));
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(MemoryProtectionTest, EachMebibyteOfLargeMemoryIsEnciphered_InItsOwnWay) {
    constexpr std::size_t unit = 1 << 20;
    std::vector<std::uint8_t> memory(2 * unit, 7);
    const std::vector<std::uint8_t> plain = memory;

    EXPECT_TRUE(protection.Protect(memory, 0));

    const std::span<const std::uint8_t> all(memory);
    EXPECT_FALSE(std::ranges::equal(all.subspan(unit), std::span(plain).subspan(unit)));
    EXPECT_FALSE(std::ranges::equal(all.first(unit), all.subspan(unit)));
    EXPECT_TRUE(protection.Unprotect(memory, 0));
    EXPECT_EQ(memory, plain);
}

}  // namespace
}  // namespace Ombry::Tests
