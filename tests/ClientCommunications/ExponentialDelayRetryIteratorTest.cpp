#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"

#include <gtest/gtest.h>

#include <limits>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

std::vector<std::int64_t> NextTicks(IRetryDelayIterator& delays, int count) {
    std::vector<std::int64_t> ticks;
    for (int i = 0; i < count; ++i)
        ticks.push_back(delays.Next().count());
    return ticks;
}

TEST(ExponentialDelayRetryIteratorTest, DelaysDoubleUpToTheBoundAndStayThere) {
    ExponentialDelayRetryIterator delays{Duration(10'000'000), Duration(300'000'000)};
    EXPECT_EQ(NextTicks(delays, 8),
              (std::vector<std::int64_t>{10'000'000, 20'000'000, 40'000'000, 80'000'000, 160'000'000,
                                         300'000'000, 300'000'000, 300'000'000}));
}

TEST(ExponentialDelayRetryIteratorTest, ResetStartsTheRowAgain) {
    ExponentialDelayRetryIterator delays{Duration(10'000'000), Duration(300'000'000)};
    NextTicks(delays, 7);
    delays.Reset();
    EXPECT_EQ(NextTicks(delays, 2), (std::vector<std::int64_t>{10'000'000, 20'000'000}));
}

TEST(ExponentialDelayRetryIteratorTest, DoublingThatHitsTheBoundExactlyIsNotCut) {
    ExponentialDelayRetryIterator delays{Duration(3), Duration(12)};
    EXPECT_EQ(NextTicks(delays, 4), (std::vector<std::int64_t>{3, 6, 12, 12}));
}

TEST(ExponentialDelayRetryIteratorTest, AnInitialDelayAboveTheBoundIsReturnedForEver) {
    ExponentialDelayRetryIterator delays{Duration(31), Duration(30)};
    EXPECT_EQ(NextTicks(delays, 3), (std::vector<std::int64_t>{31, 31, 31}));
}

TEST(ExponentialDelayRetryIteratorTest, AnInitialDelayEqualToTheBoundStays) {
    ExponentialDelayRetryIterator delays{Duration(30), Duration(30)};
    EXPECT_EQ(NextTicks(delays, 2), (std::vector<std::int64_t>{30, 30}));
}

TEST(ExponentialDelayRetryIteratorTest, DoublingStopsAtTheEndOfTheRange) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    ExponentialDelayRetryIterator delays{Duration(most / 2 + 1), Duration(most)};
    EXPECT_EQ(NextTicks(delays, 3), (std::vector<std::int64_t>{most / 2 + 1, most, most}));
}

TEST(ExponentialDelayRetryIteratorTest, TheFactoryMakesIndependentRows) {
    ExponentialDelayRetryIteratorFactory factory{Duration(10), Duration(30)};
    const auto first = factory.Create();
    EXPECT_EQ(NextTicks(*first, 3), (std::vector<std::int64_t>{10, 20, 30}));
    EXPECT_EQ(NextTicks(*factory.Create(), 2), (std::vector<std::int64_t>{10, 20}));
}

}  // namespace
}  // namespace Ombry::Tests
