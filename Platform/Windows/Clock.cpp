#include "Platform/IClock.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"
#include "Platform/Windows/FileTime.h"

namespace Ombry::Platform {
namespace {

class WindowsClock : public IClock {
public:
    TimePoint Now() override {
        FILETIME time{};
        GetSystemTimePreciseAsFileTime(&time);
        return Windows::TimeOf(static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
    }

    Duration SteadyNow() override {
        LARGE_INTEGER count{};
        QueryPerformanceCounter(&count);
        // In two parts: the product of the whole count would overflow within weeks.
        const std::int64_t seconds = count.QuadPart / countsPerSecond;
        const std::int64_t rest = count.QuadPart % countsPerSecond;
        return Duration(seconds * TicksPerSecond + rest * TicksPerSecond / countsPerSecond);
    }

    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        if (atMost <= Duration::zero()) return;
        // Cut before the conversion to nanoseconds, which a long wait would overflow.
        condition.wait_for(lock, std::min(atMost, LongestWait));
    }

    void Sleep(Duration slice) override {
        if (slice <= Duration::zero()) return;
        const Duration end(SaturatingAdd(SteadyNow().count(), slice.count()));
        // The system counts in its own steps, and may come back within the last one.
        for (Duration left = slice; left > Duration::zero(); left = end - SteadyNow()) {
            const auto milliseconds =
                std::chrono::ceil<std::chrono::milliseconds>(std::min(left, LongestWait));
            ::Sleep(static_cast<DWORD>(milliseconds.count()));
        }
    }

private:
    // Constant from the start of the system on.
    const std::int64_t countsPerSecond = [] {
        LARGE_INTEGER frequency{};
        QueryPerformanceFrequency(&frequency);
        return frequency.QuadPart;
    }();
};

}  // namespace

template <>
IClock& Production<IClock>() {
    return MadeOnce<WindowsClock>();
}

}  // namespace Ombry::Platform
