// Below the thread sanitizer, which must find a race, and say of which test it is.

#if defined(__SANITIZE_THREAD__) && defined(__clang__)

#include <gtest/gtest.h>

#include <thread>

namespace Ombry::Tests {
namespace {

TEST(NamedRacesDeathTest, RaceOfATestEndsTheExecutableAndSaysWhichTestRan) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            int raced = 0;
            std::thread other([&] { ++raced; });
            ++raced;
            other.join();
        },
        testing::ExitedWithCode(66),
        "data race(.|\n)*while NamedRacesDeathTest\\.RaceOfATestEndsTheExecutableAndSaysWhichTestRan was");
}

}  // namespace
}  // namespace Ombry::Tests

#endif
