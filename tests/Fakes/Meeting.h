#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace Ombry::Tests {

/// Where threads wait for each other, as often as they like. The barrier of the standard library that comes
/// with the cross compiler does not let them go on below Wine.
class Meeting {
public:
    explicit Meeting(std::size_t threads) : threads(threads) {}

    void ArriveAndWait() {
        std::unique_lock guard(mutex);
        const std::size_t mine = round;
        if (++arrived == threads) {
            arrived = 0;
            ++round;
            all.notify_all();
        }
        all.wait(guard, [&] { return round != mine; });
    }

private:
    const std::size_t threads;
    std::mutex mutex;
    std::condition_variable all;
    // Guarded by mutex:
    std::size_t arrived = 0;
    std::size_t round = 0;
};

}  // namespace Ombry::Tests
