#pragma once

#include <atomic>
#include <cstddef>
#include <future>
#include <system_error>

namespace Ombry::Doctor {

/// Does the work for each number below `count`, by two threads where there are many. Each takes the next that
/// nobody has, so that one that starts late, or not at all, keeps nobody waiting.
template <class Work>
void SideBySide(std::size_t count, Work work) {
    constexpr std::size_t worthAThread = 32;
    std::atomic<std::size_t> next = 0;
    const auto doTheRest = [&] {
        for (std::size_t number; (number = next++) < count;)
            work(number);
    };
    std::future<void> beside;
    try {
        if (count >= worthAThread) beside = std::async(std::launch::async, doTheRest);
    } catch (const std::system_error&) {  // this thread does all of it
    }
    doTheRest();
    if (beside.valid()) beside.get();
}

}  // namespace Ombry::Doctor
