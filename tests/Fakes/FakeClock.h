#pragma once

#include "Platform/IClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// A clock that moves when told. `Sleep` moves it by the slice and returns at once; `Wait` really waits,
/// until the condition is notified or `Advance` has moved the clock past the end of the wait. Wall and steady
/// time move together unless `SetNow` makes the wall clock jump.
class FakeClock : public Platform::IClock {
public:
    explicit FakeClock(TimePoint start = TimePoint(Duration(SecondsToTicks(1'600'000'000)))) : now(start) {}

    TimePoint Now() override {
        std::lock_guard guard(mutex);
        return now;
    }

    Duration SteadyNow() override {
        std::lock_guard guard(mutex);
        return steady;
    }

    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        std::unique_lock guard(mutex);
        waits.push_back(atMost);
        changed.notify_all();
        if (atMost <= Duration::zero()) return;
        const Waiter waiter{&condition, lock.mutex(), steady + atMost, ++lastWaiter};
        waiters.push_back(waiter);
        guard.unlock();
        condition.wait(lock);
        guard.lock();
        std::erase_if(waiters, [&](const Waiter& other) { return other.id == waiter.id; });
        changed.notify_all();
    }

    void Sleep(Duration slice) override {
        std::function<void()> hook;
        {
            std::lock_guard guard(mutex);
            sleeps.push_back(slice);
            hook = onSleep;
        }
        Advance(slice);
        if (hook) hook();
    }

    /// Moves both clocks on and wakes the waits that end by then.
    void Advance(Duration by) {
        std::vector<Waiter> due;
        {
            std::lock_guard guard(mutex);
            now += by;
            steady += by;
            std::copy_if(waiters.begin(), waiters.end(), std::back_inserter(due),
                         [&](const Waiter& waiter) { return waiter.end <= steady; });
        }
        for (const Waiter& waiter : due) {
            std::lock_guard guard(*waiter.mutex);
            waiter.condition->notify_all();
        }
    }

    /// Makes the wall clock jump; waits do not notice.
    void SetNow(TimePoint to) {
        std::lock_guard guard(mutex);
        now = to;
    }

    /// What only a test that would hang for ever waits for.
    static constexpr std::chrono::milliseconds Limit = std::chrono::minutes(2);

    /// Blocks until at least `count` threads are in `Wait`. Throws at the limit, so that the test has a name.
    void AwaitWaiters(std::size_t count, std::chrono::milliseconds limit = Limit) {
        Await(waiters, count, limit, "threads that wait");
    }

    /// Blocks until `Wait` was called at least `count` times in all. The last of these waits may be over.
    /// Throws at the limit, so that the test has a name.
    void AwaitWaits(std::size_t count, std::chrono::milliseconds limit = Limit) {
        Await(waits, count, limit, "waits");
    }

    /// Called after each `Sleep`, on the thread that slept.
    void OnSleep(std::function<void()> hook) {
        std::lock_guard guard(mutex);
        onSleep = std::move(hook);
    }

    std::vector<Duration> Sleeps() {
        std::lock_guard guard(mutex);
        return sleeps;
    }

    /// The lengths that were asked of `Wait`, in order.
    std::vector<Duration> Waits() {
        std::lock_guard guard(mutex);
        return waits;
    }

private:
    struct Waiter {
        std::condition_variable* condition;
        std::mutex* mutex;
        Duration end;
        std::uint64_t id;
    };

    template <class List>
    void Await(const List& list, std::size_t count, std::chrono::milliseconds limit, const char* what) {
        std::unique_lock guard(mutex);
        if (changed.wait_for(guard, limit, [&] { return list.size() >= count; })) return;
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        throw std::runtime_error((test ? std::string(test->test_suite_name()) + "." + test->name() : "") +
                                 ": " + std::to_string(list.size()) + " of " + std::to_string(count) + " " +
                                 what + " came.");
    }

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex:
    TimePoint now;
    Duration steady{};
    std::vector<Waiter> waiters;
    std::vector<Duration> sleeps;
    std::vector<Duration> waits;
    std::function<void()> onSleep;
    std::uint64_t lastWaiter = 0;
};

}  // namespace Ombry::Tests
