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

/// Each attempt waits for 100 seconds, and a call has 300.
TEST_F(FleetTest, DatacenterOfFourServersThatIsSilentFailsCallsThatTheOtherOneWouldAnswer) {
    std::vector<std::size_t> failures;
    for (const TimePoint failure : run->outcomes.failures) {
        const auto second = static_cast<std::size_t>((failure - Start).count() / TicksPerSecond);
        if (second >= Days::DatacenterDown.begin && second <= Days::DatacenterDown.end + 300)
            failures.push_back(second);
    }
    EXPECT_GT(failures.size(), Clients / 20);
    ASSERT_FALSE(failures.empty());
    EXPECT_GE(failures.front(), Days::DatacenterDown.begin + 299);
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

constexpr int FewClients = 8;
constexpr Window HalfAnHour{Hour / 2, Hour};

/// Some clients that call often, of a service that refuses for half an hour.
FleetSettings ServiceDown(std::optional<int> datacenter) {
    FleetSettings settings;
    settings.clients = FewClients;
    settings.length = std::chrono::minutes(150);
    settings.service.outages = {{HalfAnHour, Failure::Refused, Role::Work, datacenter}};
    return settings;
}

/// Not that a gateway stays with what answers: each call has a new one, and what failed is remembered beside
/// them.
TEST(FleetRunTest, ServerThatFailedIsNotAskedFirstAgainUntilThatIsHalfAnHourAgo) {
    FleetSettings settings = ServiceDown(0);
    settings.leastPause = std::chrono::seconds(30);
    settings.mostPause = std::chrono::seconds(90);
    settings.gatewayOfEachCall = true;
    FleetRun run = RunFleet(settings);
    EXPECT_TRUE(run.outcomes.failures.empty());
    // Half of the clients meet the four once. Others of their attempts were answered.
    const auto attempts = static_cast<double>(run.log.Sum({Request::Work}, {0, run.log.Seconds()}));
    EXPECT_NEAR(attempts - static_cast<double>(run.outcomes.answered), FewClients / 2 * 4, FewClients);
    // And come back: they call about once a minute, and were away for half an hour of 150 minutes.
    std::uint64_t atHome = 0;
    for (int number = 0; number < 4; ++number)
        atHome += run.requestsByInstance["https://v1-print-" + std::to_string(number) + ".dc0"];
    EXPECT_NEAR(static_cast<double>(atHome), FewClients / 2 * 120, 8 * FewClients);
}

TEST(FleetRunTest, ServersThatAreDownAreAskedByAClientOnceInHalfAMinuteHoweverOftenItCalls) {
    FleetSettings settings = ServiceDown({});
    settings.length = std::chrono::hours(1) + std::chrono::minutes(1);
    settings.leastPause = std::chrono::seconds(2);
    settings.mostPause = std::chrono::seconds(4);
    const FleetRun run = RunFleet(settings);
    // Eight servers. The first waits are shorter.
    const std::uint64_t attempts = run.log.Sum({Request::Work}, HalfAnHour);
    EXPECT_LT(attempts, 8 * FewClients * (1800 / 30 + 5));
    EXPECT_GT(attempts, 8 * FewClients * (1800 / 36));
    // The outage is as long as it is said to be, and who waits out its end is answered.
    ASSERT_FALSE(run.outcomes.failures.empty());
    for (const TimePoint failure : run.outcomes.failures) {
        const auto second = static_cast<std::size_t>((failure - Start).count() / TicksPerSecond);
        EXPECT_GE(second, HalfAnHour.begin);
        EXPECT_LT(second, HalfAnHour.end);
    }
    EXPECT_GE(run.outcomes.failures.back(), Start + std::chrono::seconds(HalfAnHour.end - 60));
}

TEST(RequestLogTest, CountsSumsAndFindsTheBusiestStretch) {
    RequestLog log(Start, 600);
    const auto count = [&](Request kind, int second, int times) {
        for (int i = 0; i < times; ++i)
            log.Count(kind, Start + std::chrono::milliseconds(1000 * second + 999));
    };
    count(Request::Token, 0, 3);
    count(Request::Token, 60, 5);
    count(Request::Token, 119, 5);
    count(Request::Work, 119, 50);
    count(Request::Token, 599, 4);
    count(Request::Token, 600, 100);  // behind the end
    EXPECT_EQ(log.Seconds(), 600u);
    EXPECT_EQ(log.Sum({Request::Token}, {0, 600}), 17u);
    EXPECT_EQ(log.Sum({Request::Token}, {60, 119}), 5u);
    EXPECT_EQ(log.Sum({Request::Token, Request::Work}, {60, 120}), 60u);
    EXPECT_DOUBLE_EQ(log.Mean({Request::Token}, {0, 600}), 17.0 / 600);
    EXPECT_DOUBLE_EQ(log.Mean({Request::Token}, {60, 120}), 10.0 / 60);
    EXPECT_DOUBLE_EQ(log.Busiest({Request::Token}, {0, 600}, 1), 5);
    EXPECT_DOUBLE_EQ(log.Busiest({Request::Token}, {0, 600}, 60), 10.0 / 60);
    EXPECT_DOUBLE_EQ(log.Busiest({Request::Token}, {0, 119}, 1), 5);
    EXPECT_DOUBLE_EQ(log.Busiest({Request::Token}, {1, 60}, 1), 0);
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
