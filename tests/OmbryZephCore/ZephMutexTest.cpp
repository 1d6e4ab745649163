#include "OmbryZephCore/ZephMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephMutex;

TEST(ZephMutexTest, LetsOneThreadAtATimeThrough) {
    constexpr int Threads = 4, Rounds = 20'000;
    ZephMutex mutex;
    long count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < Rounds; ++round) {
                const std::lock_guard lock(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, long{Threads} * Rounds);
}

TEST(ZephMutexTest, ThreadsThatWaitAreLetInOneByOneWhenItIsFree) {
    constexpr int Threads = 3;
    ZephMutex mutex;
    std::atomic<int> begun = 0, inside = 0, most = 0;
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(mutex);
        for (int i = 0; i < Threads; ++i) {
            threads.emplace_back([&] {
                ++begun;
                const std::lock_guard own(mutex);
                const int now = ++inside;
                if (now > most) most = now;
                std::this_thread::yield();
                --inside;
            });
        }
        while (begun < Threads)
            std::this_thread::yield();
        EXPECT_EQ(most, 0) << "nobody came in while it was held";
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(most, 1);
}

}  // namespace
}  // namespace Ombry::Tests
