#include "Sandbox/Registration.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SandboxRegistrationTest : public testing::Test {
protected:
    std::vector<std::string> Listed() {
        std::vector<std::string> urls;
        for (const Sandbox::InstanceRecord& instance : state.Instances())
            urls.push_back(instance.baseUrl);
        return urls;
    }
    /// Lets the only registration say so often that it is there.
    void Beat(int times) {
        for (int i = 0; i < times; ++i) {
            clock.AwaitWaits(++beats);
            clock.Advance(Sandbox::Registration::Interval);
        }
        clock.AwaitWaits(beats + 1);
    }

    std::size_t beats = 0;
    FakeClock clock;  // at 1'600'000'000
    const Platform::Testing::Replace<Platform::IClock> replaced{clock};
    const TemporaryDirectory folder;
    Sandbox::State state{folder.Path()};
};

TEST_F(SandboxRegistrationTest, InstanceIsListedAsLongAsItsRegistrationLives) {
    {
        const Sandbox::Registration registration(state, {"https://a", "", "d"});
        EXPECT_THAT(Listed(), ElementsAre("https://a"));
        Beat(10);
        EXPECT_THAT(Listed(), ElementsAre("https://a"));
        EXPECT_EQ(state.Instances()[0].seen, 1'600'000'050);
    }
    EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(SandboxRegistrationTest, InstanceThatWasKilledIsDroppedByTheOthersAfterItsSilence) {
    state.AddInstance({"https://killed", "", "d"}, 1'600'000'000);
    const Sandbox::Registration registration(state, {"https://a", "", "d"});
    Beat(3);
    EXPECT_THAT(Listed(), ElementsAre("https://a", "https://killed"));
    Beat(1);
    EXPECT_THAT(Listed(), ElementsAre("https://a"));
}

TEST_F(SandboxRegistrationTest, WhatWasLeftByAllIsDroppedAtTheStart) {
    state.AddInstance({"https://killed", "", "d"}, 1'599'999'000);
    const Sandbox::Registration registration(state, {"https://a", "", "d"});
    EXPECT_THAT(Listed(), ElementsAre("https://a"));
}

TEST_F(SandboxRegistrationTest, InstanceThatWasStoppedForAWhileIsListedAgain) {
    const Sandbox::Registration registration(state, {"https://a", "", "d"});
    state.RemoveInstance("https://a");  // as another one does, which heard nothing of it
    Beat(1);
    EXPECT_THAT(Listed(), ElementsAre("https://a"));
}

TEST_F(SandboxRegistrationTest, TokenGoesWhenItHasExpiredAndNotBefore) {
    state.AddToken("1", "c", 1'600'000'000, 1'600'000'010);
    state.AddToken("2", "c", 1'600'000'000, 1'600'000'011);
    const Sandbox::Registration registration(state, {"https://a", "", "d"});
    Beat(1);
    EXPECT_TRUE(state.HasToken("1"));
    Beat(1);
    EXPECT_FALSE(state.HasToken("1"));
    EXPECT_TRUE(state.HasToken("2"));
}

TEST_F(SandboxRegistrationTest, FailureOfTheDatabaseIsLoggedAndTheNextRoundTriesAgain) {
    testing::internal::CaptureStderr();
    {
        const Sandbox::Registration registration(state, {"https://a", "", "d"});
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open((folder / "state.sqlite").c_str(), &database), SQLITE_OK);
        sqlite3_exec(database, "ALTER TABLE instances RENAME TO others", nullptr, nullptr, nullptr);
        Beat(1);
        sqlite3_exec(database, "ALTER TABLE others RENAME TO instances", nullptr, nullptr, nullptr);
        sqlite3_close(database);
        Beat(1);
        EXPECT_EQ(state.Instances()[0].seen, 1'600'000'010);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ombry-sandbox: Database: no such table: instances\n");
}

}  // namespace
}  // namespace Ombry::Tests
