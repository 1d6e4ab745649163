// When an open page is told what.

#include "Sandbox/EventStream.h"
#include "tests/Sandbox/CallsFixture.h"

#include <future>

namespace Ombry::Tests::SandboxService {
namespace {

using namespace std::chrono_literals;

class SandboxEventStreamTest : public SandboxCallsTest {
protected:
    SandboxEventStreamTest() { TakeOptions({}); }

    void Note() { journal.Add({}); }
    /// The names of the events of the next piece, for which a tick is waited if nothing has happened.
    std::string Next() {
        std::size_t waits = clock.Waits().size();
        auto next = std::async(std::launch::async, [&] { return stream.Next(); });
        while (next.wait_for(0s) != std::future_status::ready) {
            if (clock.Waits().size() == waits) continue;
            ++waits;
            clock.Advance(Sandbox::EventStream::Tick);
        }
        const auto piece = next.get();
        if (!piece) return "end";
        std::string names;
        for (std::size_t at = piece->find("event: "); at != std::string::npos;
             at = piece->find("event: ", at + 1))
            names += piece->substr(at + 7, piece->find('\n', at) - at - 7) + " ";
        return names;
    }

    Sandbox::Journal journal;
    Sandbox::Page page{options, state, faults, journal};
    Sandbox::EventStream stream{page, journal, baseUrl};
};

TEST_F(SandboxEventStreamTest, OverviewFollowsWhatHappenedWithinATickAndOnlyOnce) {
    EXPECT_EQ(Next(), "overview ");
    Note();
    EXPECT_EQ(Next(), "requests ");
    clock.Advance(499ms);
    Note();
    EXPECT_EQ(Next(), "requests ");
    clock.Advance(1ms);
    Note();
    EXPECT_EQ(Next(), "requests overview ");
    EXPECT_EQ(Next(), "");
}

TEST_F(SandboxEventStreamTest, OverviewComesEveryThreeSecondsIfNothingHappens) {
    EXPECT_EQ(Next(), "overview ");
    for (int tick = 1; tick < 6; ++tick)
        EXPECT_EQ(Next(), "");
    EXPECT_EQ(Next(), "overview ");
}

TEST_F(SandboxEventStreamTest, WhatAPageWasToldItIsNotToldAgain) {
    Note();
    Note();
    EXPECT_EQ(Next(), "requests overview ");
    EXPECT_EQ(Next(), "");
}

TEST_F(SandboxEventStreamTest, JournalKeepsTheLastHundred) {
    for (int i = 0; i < 101; ++i)
        Note();
    const auto kept = journal.After(0);
    EXPECT_EQ(kept.size(), 100u);
    EXPECT_EQ(kept.front().number, 2u);
    EXPECT_EQ(journal.After(100).size(), 1u);
}

TEST_F(SandboxEventStreamTest, RequestIsToldWithTheBeginningOfALongPath) {
    Sandbox::JournalEntry entry;
    entry.path = "/" + std::string(1000, 'x');
    journal.Add(entry);
    std::uint64_t number = 0;
    EXPECT_THAT(page.RequestsEvent(number), testing::HasSubstr("\"/" + std::string(199, 'x') + "\""));
}

TEST_F(SandboxEventStreamTest, OverviewHasTheNewestFifty) {
    for (int i = 0; i <= 50; ++i)
        state.AddService({std::to_string(i), "n" + std::to_string(i), "c", "u", "", "h", "s", "d", {}});
    const std::string overview = page.OverviewEvent(baseUrl);
    EXPECT_THAT(overview, testing::HasSubstr(R"("serviceCount":51,)"));
    for (const char* shown : {R"("n50")", R"("n1")"})
        EXPECT_THAT(overview, testing::HasSubstr(shown));
    EXPECT_THAT(overview, testing::Not(testing::HasSubstr(R"("n0")")));
}

TEST_F(SandboxEventStreamTest, RunsOfTheServiceAreToldApart) {
    clock.Advance(1s);
    const Sandbox::Page later(options, state, faults, journal);
    Note();
    const auto runIn = [](const std::string& event) { return event.substr(event.find("\"run\""), 30); };
    std::uint64_t number = 0, again = 0;
    EXPECT_NE(runIn(page.RequestsEvent(number)), runIn(later.RequestsEvent(again)));
}

TEST_F(SandboxEventStreamTest, EndsWithTheJournal) {
    EXPECT_EQ(Next(), "overview ");
    journal.Close();
    EXPECT_EQ(Next(), "end");
}

}  // namespace
}  // namespace Ombry::Tests::SandboxService
