#pragma once

#include "tests/Fakes/ThreadState.h"

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace Ombry::Tests {

/// A thread that a test can see blocked or done, without any waiting by the clock.
class ObservedThread {
public:
    explicit ObservedThread(std::function<void()> work)
        : thread([this, work = std::move(work)] {
              id = ThreadState::ThisThread();
              work();
              done = true;
          }) {}
    ~ObservedThread() { Join(); }
    ObservedThread(const ObservedThread&) = delete;
    ObservedThread& operator=(const ObservedThread&) = delete;

    void Join() {
        if (thread.joinable()) thread.join();
    }

    /// Returns once the thread sleeps in the system or has ended: whether it is still at work.
    bool IsBlocked() {
        while (!done) {
            if (id != 0 && ThreadState::IsAsleep(id)) return !done;
            std::this_thread::yield();
        }
        return false;
    }

private:
    std::atomic<std::intptr_t> id{0};
    std::atomic<bool> done{false};
    std::thread thread;  // last: started when all else stands
};

/// Whether a thread comes to its end by itself. The number of looks only bounds how long one that was
/// forgotten holds the test up.
inline bool EndsUnaided(const std::atomic<bool>& ended) {
    for (int looks = 0; !ended && looks < 5'000'000; ++looks)
        std::this_thread::yield();
    return ended;
}

}  // namespace Ombry::Tests
