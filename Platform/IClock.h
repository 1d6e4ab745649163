#pragma once

#include "Platform/Current.h"
#include "Platform/Time.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace Ombry::Platform {

/// The clocks, and every way in which a thread lets time pass. Reading and waiting are one group, so that a
/// test that moves the clock also ends the waits. All operations may be called from any thread.
class IClock {
public:
    virtual ~IClock() = default;

    /// The system clock. Administrators and time services may move it either way.
    virtual TimePoint Now() = 0;

    /// `Now` in whole seconds since 1970, rounded down. It may lag behind by some milliseconds, where a clock
    /// that does is cheaper.
    virtual std::int64_t NowSeconds() {
        return std::chrono::floor<std::chrono::seconds>(Now()).time_since_epoch().count();
    }

    /// A clock that only goes forward; its zero has no meaning.
    virtual Duration SteadyNow() = 0;

    /// Waits on `condition` once, at most `atMost` of steady time. It may return early for no reason.
    /// `lock` is held on entry and on return.
    virtual void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                      Duration atMost) = 0;

    /// Sleeps for `slice` of steady time, never less.
    virtual void Sleep(Duration slice) = 0;
};

template <>
IClock& Production<IClock>();

inline IClock& Clock() {
    return Current<IClock>();
}

/// Seconds of the system clock since 1970, as `IClock::NowSeconds` has them.
inline std::int64_t WallSeconds() {
    return Clock().NowSeconds();
}

/// A single wait never exceeds this: far time points stay clear of conversions that overflow.
inline constexpr Duration LongestWait = std::chrono::hours(24 * 10);

/// Waits until `predicate` holds or `length` of steady time has passed, in which sleep of the machine does
/// not count on Linux, and does on Windows; the result is what the predicate said last. Whoever makes it true
/// does so under the lock's mutex and notifies `condition`.
template <class Predicate>
bool WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, Duration length,
             Predicate predicate) {
    const Duration start = Clock().SteadyNow();
    while (!predicate()) {
        const Duration left = length - (Clock().SteadyNow() - start);
        if (left <= Duration::zero()) return false;
        Clock().Wait(condition, lock, std::min(left, LongestWait));
    }
    return true;
}

/// A wait for a time of day never goes longer without a look at the system clock, which goes on while the
/// machine sleeps and can be set: the clock of a wait does neither.
inline constexpr Duration LongestBlindWait = std::chrono::minutes(5);

/// Waits until `predicate` holds or the system clock has reached `deadline`; the result is what the predicate
/// said last. Sleep of the machine and jumps of the system clock are noticed when a single wait ends.
template <class Predicate>
bool WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, TimePoint deadline,
               Predicate predicate) {
    while (!predicate()) {
        const TimePoint now = Clock().Now();
        if (now >= deadline) return false;
        // A deadline before 1970 was passed above, so the difference of two non-negative counts cannot
        // overflow unless the clock itself stands before 1970; the sum then saturates.
        const Duration left(
            SaturatingAdd(deadline.time_since_epoch().count(),
                          -std::max<std::int64_t>(now.time_since_epoch().count(), -LongestWait.count())));
        Clock().Wait(condition, lock, std::min(left, LongestBlindWait));
    }
    return true;
}

}  // namespace Ombry::Platform
