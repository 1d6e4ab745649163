#include "Platform/Time.h"

#include <type_traits>

namespace Ombry::Tests {
namespace {

constexpr std::int64_t Max = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t Min = std::numeric_limits<std::int64_t>::min();

TEST(TimeTest, TicksAreSigned64BitCountsOfHundredNanosecondsSince1970) {
    EXPECT_TRUE((std::is_same_v<Duration::rep, std::int64_t>));
    EXPECT_EQ(Duration(TicksPerSecond), std::chrono::seconds(1));
    EXPECT_EQ(std::chrono::nanoseconds(Duration(1)).count(), 100);
    EXPECT_EQ(TimePoint().time_since_epoch().count(), 0);
}

TEST(TimeTest, SumsStopAtTheEndsOfTheRange) {
    struct Case {
        std::int64_t left, right, sum;
    };
    for (const Case& one : std::vector<Case>{{0, 0, 0},
                                             {1, 2, 3},
                                             {-1, -2, -3},
                                             {5, -7, -2},
                                             {Max, 0, Max},
                                             {Max - 1, 1, Max},
                                             {Max, 1, Max},
                                             {Max, Max, Max},
                                             {Max - 1, 5, Max},
                                             {Min, 0, Min},
                                             {Min + 1, -1, Min},
                                             {Min, -1, Min},
                                             {Min, Min, Min},
                                             {Min + 1, -5, Min},
                                             {Max, Min, -1},
                                             {Min, Max, -1},
                                             {Max, -1, Max - 1},
                                             {Min, 1, Min + 1}}) {
        EXPECT_EQ(SaturatingAdd(one.left, one.right), one.sum) << one.left << " " << one.right;
        EXPECT_EQ(SaturatingAdd(one.right, one.left), one.sum) << one.left << " " << one.right;
        EXPECT_EQ(SaturatingAdd(TimePoint(Duration(one.left)), Duration(one.right)),
                  TimePoint(Duration(one.sum)));
    }
}

TEST(TimeTest, SecondsBecomeTicksAndStopAtTheEndsOfTheRange) {
    constexpr std::int64_t most = Max / TicksPerSecond;
    EXPECT_EQ(SecondsToTicks(0), 0);
    EXPECT_EQ(SecondsToTicks(3600), 36'000'000'000);
    EXPECT_EQ(SecondsToTicks(-1), -10'000'000);
    EXPECT_EQ(SecondsToTicks(most), most * TicksPerSecond);
    EXPECT_EQ(SecondsToTicks(most + 1), Max);
    EXPECT_EQ(SecondsToTicks(Max), Max);
    EXPECT_EQ(SecondsToTicks(-most), -most * TicksPerSecond);
    EXPECT_EQ(SecondsToTicks(-most - 1), Min);
    EXPECT_EQ(SecondsToTicks(Min), Min);
}

}  // namespace
}  // namespace Ombry::Tests
