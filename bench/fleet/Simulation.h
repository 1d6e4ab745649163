#pragma once

#include "Platform/IClock.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <queue>
#include <vector>

namespace Ombry::Fleet {

/// Thousands of programs of many threads each on one thread, in a time that costs nothing: each of their
/// threads is a fiber, one runs at a time, and when all of them wait the clock moves to the end of the
/// shortest wait. While an object of this class lives, the thread that made it starts and joins fibers in the
/// place of threads
/// (`pthread_create`, `pthread_join`), so that classes which own a thread run here unchanged.
///
/// A wait ends with its time and not before, whoever notifies its condition: those who end a thread join it,
/// and a thread that is joined is woken. What waits must hold no lock but that of its condition, and handle
/// no exception.
class Simulation : public Platform::IClock {
public:
    explicit Simulation(TimePoint start);
    ~Simulation() override;
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    struct Fiber;

    /// A new fiber, due at once. Stays valid as long as this object.
    Fiber* Start(std::function<void()> work);
    /// Runs a fiber until it ends, whatever it waits for; the clock stands still meanwhile.
    void Join(Fiber* fiber);
    /// Runs whatever is due up to `end`, and leaves the clock there.
    void RunUntil(TimePoint end);

    /// How often a fiber was run so far.
    std::uint64_t Wakes() const { return wakes; }
    std::size_t Fibers() const { return fibers.size(); }

    // Of these, a fiber alone may wait.
    TimePoint Now() override { return now; }
    Duration SteadyNow() override { return now - start; }
    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override;
    void Sleep(Duration slice) override;

private:
    class Stacks;
    struct Wake {
        TimePoint at;
        std::uint64_t number;  // of two at one time, the one that was asked for first
        Fiber* fiber;

        bool operator>(const Wake& other) const {
            return at != other.at ? at > other.at : number > other.number;
        }
    };

    void Resume(Fiber& fiber);
    void WakeAt(Fiber& fiber, TimePoint at);

    const TimePoint start;
    TimePoint now;
    std::unique_ptr<Stacks> stacks;
    std::vector<std::unique_ptr<Fiber>> fibers;
    std::priority_queue<Wake, std::vector<Wake>, std::greater<>> queue;
    Fiber* running = nullptr;
    std::uint64_t wakes = 0;
    std::uint64_t wakeNumber = 0;
};

}  // namespace Ombry::Fleet
