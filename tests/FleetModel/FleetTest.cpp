// A day of 1,000 clients over a model of the service: what the fleet asks as a whole, which no test of a
// class can see.

#include "bench/fleet/Days.h"
#include "bench/fleet/RateChart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace Fleet;
using Days::Hour;

constexpr int Clients = 1'000;

FleetSettings OneDay() {
    FleetSettings settings = Days::Settings(Clients, 1);
    settings.length = std::chrono::hours(26);
    settings.leastPause = std::chrono::hours(1);
    settings.mostPause = std::chrono::hours(3);
    settings.service.tokenLife = std::chrono::hours(8);
    return settings;
}

/// The same day for all tests.
class FleetTest : public testing::Test {
protected:
    static void SetUpTestSuite() { run = std::make_unique<FleetRun>(RunFleet(OneDay())); }
    static void TearDownTestSuite() { run.reset(); }

    static std::uint64_t Sum(const std::vector<Request>& kinds, Window window) {
        return run->log.Sum(kinds, window);
    }
    /// Requests in the busiest minute.
    static double BusiestMinute(const std::vector<Request>& kinds, Window window) {
        return 60 * run->log.Busiest(kinds, window, 60);
    }

    static inline std::unique_ptr<FleetRun> run;
};

/// Its own list, where to get tokens, a token for discovery, where the service is, and a token for that.
TEST_F(FleetTest, StartCostsFiveRequestsOfEachClient) {
    EXPECT_EQ(Sum({Request::Work}, {0, Hour / 6}), Clients);
    for (const Request kind : {Request::DiscoveryList, Request::TokenSearch, Request::ServiceSearch})
        EXPECT_EQ(Sum({kind}, {0, Hour / 6}), Clients);
    // A few draw the first refresh of their tokens from these ten minutes.
    EXPECT_GE(Sum({Request::Token}, {0, Hour / 6}), 2 * Clients);
    EXPECT_LE(Sum({Request::Token}, {0, Hour / 6}), 2.1 * Clients);
}

TEST_F(FleetTest, TokensAreRefreshedEvenlyThoughAllWereFetchedAtOnce) {
    const Window quiet{2 * Hour, 8 * Hour};
    const double mean = 60 * run->log.Mean({Request::Token}, quiet);
    EXPECT_GT(mean, Clients / 600.0);  // otherwise there is nothing to be even
    EXPECT_LT(BusiestMinute({Request::Token}, quiet), 5 * mean);
}

TEST_F(FleetTest, OneTokenServesManyCalls) {
    const Window quiet{2 * Hour, 8 * Hour};
    EXPECT_LT(Sum({Request::Token}, quiet), 0.6 * static_cast<double>(Sum({Request::Work}, quiet)));
}

TEST_F(FleetTest, DailyRefreshOfTheDiscoveryListIsSpreadOverSixHours) {
    EXPECT_EQ(Sum({Request::DiscoveryList}, {Hour / 6, 18 * Hour - 60}), 0u);
    const Window before{18 * Hour, Days::DiscoveryDown.begin};
    const Window after{Days::DiscoveryDown.end, 24 * Hour + 120};
    // Those whose turn came while discovery was down come again, a few of them later than this.
    EXPECT_GE(Sum({Request::DiscoveryList}, before) + Sum({Request::DiscoveryList}, after), 0.98 * Clients);
    for (const Window window : {before, after})
        EXPECT_LT(BusiestMinute({Request::DiscoveryList}, window), 0.015 * Clients);
}

TEST_F(FleetTest, WhileDiscoveryIsDownEachClientWhoseTurnItIsAsksItsFourInstancesAndComesBackMuchLater) {
    const double due = Clients * static_cast<double>(Hour / 2) / (6 * Hour);
    const std::uint64_t asked = Sum({Request::DiscoveryList}, Days::DiscoveryDown);
    EXPECT_GT(asked, 3 * due);
    EXPECT_LT(asked, 5.5 * due);
}

TEST_F(FleetTest, AfterAnOutageThereIsNoRush) {
    for (const Window outage : {Days::TokensDown, Days::DatacenterDown, Days::DiscoveryDown}) {
        const Window hourAfter{outage.end, outage.end + Hour};
        EXPECT_LT(BusiestMinute(ServiceRequests, hourAfter), 0.1 * Clients) << outage.begin / Hour << " h";
    }
}

/// A call that began while a datacenter was silent can take all of its 300 seconds to fail.
TEST_F(FleetTest, CallsFailOnlyIfTheyBeganWhileSomethingWasDown) {
    EXPECT_FALSE(run->outcomes.failures.empty());
    for (const TimePoint failure : run->outcomes.failures) {
        const auto second = static_cast<std::size_t>((failure - Start).count() / TicksPerSecond);
        bool isDown = false;
        for (const Window outage : {Days::TokensDown, Days::DatacenterDown, Days::DiscoveryDown})
            isDown = isDown || (second >= outage.begin && second <= outage.end + 300);
        EXPECT_TRUE(isDown) << second;
    }
}

/// Not so discovery: whoever was started on a new machine stays with the one instance that it was told of.
TEST_F(FleetTest, TokenServersAndServersOfAServiceAreAskedAlike) {
    const auto asked = [](const std::string& service, int number, int datacenter) {
        return static_cast<double>(
            run->requestsByInstance["https://" + service + "-" + std::to_string(number) + ".dc" +
                                    std::to_string(datacenter)]);
    };
    for (const int datacenter : {0, 1}) {
        EXPECT_NEAR(asked("v1-auth", 0, datacenter) / asked("v1-auth", 1, datacenter), 1, 0.2);
        for (const int number : {1, 2, 3})
            EXPECT_NEAR(asked("v1-print", 0, datacenter) / asked("v1-print", number, datacenter), 1, 0.25);
    }
    EXPECT_GT(asked("v1-service", 0, 0), 5 * asked("v1-service", 1, 0));
}

TEST(FleetRunTest, OneSeedGivesOneRunAndAnotherSeedAnother) {
    FleetSettings settings = Days::Settings(20, 1);
    settings.length = std::chrono::hours(10);
    const auto wakes = [&](std::uint32_t seed) {
        settings.seed = seed;
        return RunFleet(settings).wakes;
    };
    EXPECT_EQ(wakes(7), wakes(7));
    EXPECT_NE(wakes(7), wakes(8));
}

TEST(RateChartTest, HasALineForEachSeriesAndAShadeForEachOutage) {
    RequestLog log(Start, 600);
    for (int i = 0; i < 100; ++i)
        log.Count(Request::Token, Start + std::chrono::seconds(310));
    const std::string svg =
        RateChart("title", {{"tokens", "#123456", {Request::Token}}}, {{"down", {300, 450}}}).Svg(log);
    EXPECT_THAT(svg, testing::HasSubstr(">title</text>"));
    EXPECT_THAT(svg, testing::HasSubstr(">down</text>"));
    EXPECT_THAT(svg, testing::HasSubstr("<rect x=\"510.0\" y=\"60\" width=\"225.0\""));
    // Nothing in the first five minutes; 100 in one second of the next, a third of one in the mean.
    EXPECT_THAT(svg, testing::HasSubstr("stroke=\"#123456\" stroke-width=\"0.6\" stroke-opacity=\"0.6\" "
                                        "d=\"M285.0 230.0L735.0 132.9\""));
    EXPECT_THAT(svg, testing::HasSubstr("stroke-width=\"1.6\" d=\"M285.0 230.0L735.0 193.0\""));
}

}  // namespace
}  // namespace Ombry::Tests
