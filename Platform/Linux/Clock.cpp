#include "Platform/IClock.h"
#include "Platform/MadeOnce.h"

#include <cerrno>
#include <ctime>

namespace Ombry::Platform {
namespace {

Duration Ticks(const timespec& time) {
    return Duration(static_cast<std::int64_t>(time.tv_sec) * TicksPerSecond + time.tv_nsec / 100);
}

class LinuxClock : public IClock {
public:
    TimePoint Now() override {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        return TimePoint(Ticks(time));
    }

    // By the clock of the last tick, which costs an eighth.
    std::int64_t NowSeconds() override { return time(nullptr); }

    Duration SteadyNow() override {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return Ticks(time);
    }

    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        if (atMost <= Duration::zero()) return;
        // Cut before the conversion to nanoseconds, which a long wait would overflow.
        condition.wait_for(lock, std::min(atMost, LongestWait));
    }

    void Sleep(Duration slice) override {
        if (slice <= Duration::zero()) return;
        const std::int64_t end = SaturatingAdd(SteadyNow().count(), slice.count());
        timespec until{};
        until.tv_sec = static_cast<time_t>(end / TicksPerSecond);
        until.tv_nsec =
            static_cast<long>(end % TicksPerSecond) * 100 + 99;  // the clock cuts down to whole ticks
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
        }
    }
};

}  // namespace

template <>
IClock& Production<IClock>() {
    return MadeOnce<LinuxClock>();
}

}  // namespace Ombry::Platform
