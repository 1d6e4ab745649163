#include "bench/fleet/Simulation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace std::chrono_literals;
using Fleet::Simulation;

constexpr TimePoint Beginning{Duration(SecondsToTicks(1'600'000'000))};

class SimulationTest : public testing::Test {
protected:
    void Note(const std::string& what) {
        const auto passed = std::chrono::duration_cast<std::chrono::seconds>(simulation.SteadyNow());
        notes.push_back(std::to_string(passed.count()) + " " + what);
    }

    Simulation simulation{Beginning};
    std::vector<std::string> notes;
};

TEST_F(SimulationTest, RunsFibersInTheOrderOfTheirTimes_AndThoseOfOneTimeInTheOrderInWhichTheyAsked) {
    simulation.Start([&] {
        simulation.Sleep(20s);
        Note("a");
    });
    simulation.Start([&] {
        simulation.Sleep(10s);
        Note("b");
        simulation.Sleep(10s);
        Note("c");
    });
    simulation.RunUntil(Beginning + 19s);
    EXPECT_THAT(notes, testing::ElementsAre("10 b"));
    EXPECT_EQ(simulation.Now(), Beginning + 19s);
    simulation.RunUntil(Beginning + 20s);
    EXPECT_THAT(notes, testing::ElementsAre("10 b", "20 a", "20 c"));
}

TEST_F(SimulationTest, AThreadOfTheStandardLibraryIsAFiber_AndIsWokenByWhoJoinsIt) {
    std::mutex mutex;
    std::condition_variable condition;
    bool stopping = false;
    simulation.Start([&] {
        std::thread thread([&] {
            std::unique_lock lock(mutex);
            while (!stopping)
                simulation.Wait(condition, lock, 1h);
            Note("ends");
        });
        simulation.Sleep(5s);
        {
            const std::lock_guard guard(mutex);
            stopping = true;
        }
        thread.join();
        Note("joined");
    });
    simulation.RunUntil(Beginning + 24h);
    EXPECT_THAT(notes, testing::ElementsAre("5 ends", "5 joined"));
    EXPECT_EQ(simulation.Fibers(), 2u);
}

TEST_F(SimulationTest, AWaitLeavesItsMutexToOthers) {
    std::mutex mutex;
    std::condition_variable condition;
    simulation.Start([&] {
        std::unique_lock lock(mutex);
        simulation.Wait(condition, lock, 10s);
        EXPECT_TRUE(lock.owns_lock());
        Note("woken");
    });
    simulation.Start([&] {
        const std::lock_guard guard(mutex);
        Note("in between");
    });
    simulation.RunUntil(Beginning + 1min);
    EXPECT_THAT(notes, testing::ElementsAre("0 in between", "10 woken"));
}

TEST_F(SimulationTest, AnExceptionStaysInItsFiber) {
    simulation.Start([&] {
        try {
            simulation.Sleep(1s);
            throw std::runtime_error("own");
        } catch (const std::runtime_error& failure) {
            Note(failure.what());
        }
    });
    simulation.Start([&] { simulation.Sleep(2s); });
    simulation.RunUntil(Beginning + 1min);
    EXPECT_THAT(notes, testing::ElementsAre("1 own"));
}

using SimulationDeathTest = SimulationTest;

TEST_F(SimulationDeathTest, ThatSomethingWaitsWhileItHandlesAnExceptionIsFound) {
    const auto wait = [this] {
        simulation.Start([&] {
            try {
                throw 1;
            } catch (int) {
                simulation.Sleep(1s);
            }
        });
        simulation.RunUntil(Beginning + 1s);
    };
    EXPECT_DEATH(wait(), "while it handled an exception");
}

/// Of the 128 KiB of a stack, so much that its last page is touched and the next stack is not.
[[gnu::noinline]] void UseStack() {
    volatile char room[126'000];
    for (auto& byte : room)
        byte = 1;
}

TEST_F(SimulationDeathTest, AStackThatWasUsedToItsEndIsFound) {
    const auto dig = [this] {
        simulation.Start(UseStack);
        simulation.RunUntil(Beginning + 1s);
    };
    EXPECT_DEATH(dig(), "a stack was too short");
}

}  // namespace
}  // namespace Ombry::Tests
