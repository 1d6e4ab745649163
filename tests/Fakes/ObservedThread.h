#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace Ombry::Tests {

/// A thread that a test can see blocked or done, without any waiting by the clock.
class ObservedThread {
public:
    explicit ObservedThread(std::function<void()> work)
        : thread([this, work = std::move(work)] {
              id = static_cast<int>(syscall(SYS_gettid));
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
            if (id != 0 && State() == 'S') return !done;
            std::this_thread::yield();
        }
        return false;
    }

private:
    /// The state letter of proc(5).
    char State() const {
        std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
        std::string text;
        std::getline(file, text);
        const std::size_t end = text.rfind(')');
        return end == std::string::npos || end + 2 >= text.size() ? '?' : text[end + 2];
    }

    std::atomic<int> id{0};
    std::atomic<bool> done{false};
    std::thread thread;  // last: started when all else stands
};

}  // namespace Ombry::Tests
