#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/IServiceFinder.h"
#include "Platform/IClock.h"
#include "tests/Fakes/FakeService.h"
#include "tests/Fakes/Meeting.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// Nothing here has a lock, and the objects that two calls get are never the same: under a thread sanitizer
// only the lock of what is tested orders what two threads do in one step, so that an access without it is
// seen each time, however the threads happen to run.

namespace Ombry::Tests {

/// Runs steps on two threads, with the number of the thread. Both begin a step together, and neither begins
/// the next before both have ended it.
inline void RunInStep(const std::vector<std::function<void(int thread)>>& steps) {
    Meeting barrier(2);
    const auto run = [&](int thread) {
        for (const auto& step : steps) {
            barrier.ArriveAndWait();
            step(thread);
        }
    };
    std::thread beside(run, 1);
    run(0);
    beside.join();
}

/// Lets one thread wait for another within a step, and orders nothing of what the two do: a thread sanitizer
/// sees no more than that they run side by side.
class UnorderedSignal {
public:
    void Give() { given.store(true, std::memory_order_relaxed); }
    void Await() const {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!given.load(std::memory_order_relaxed)) {
            if (std::chrono::steady_clock::now() > limit) {
                ADD_FAILURE() << "the other thread never gave the signal";
                return;
            }
            std::this_thread::yield();
        }
    }

private:
    std::atomic<bool> given = false;
};

/// A memory in which no server ever failed.
class NoMemory : public ClientCommunications::IFailedServices {
public:
    ClientCommunications::FailureInfo Get(const std::string&) override { return {}; }
    void RecordFailure(const std::string&, bool) override {}
    void Remove(const std::string&) override {}
};

/// Finds new objects each time. Its fields are set while there is one thread.
class LockFreeFinder : public ClientCommunications::IServiceFinder {
public:
    std::shared_ptr<ClientCommunications::IFoundServices> Find(
        std::shared_ptr<ClientCommunications::IRootRequestMetaData>, Cancellation::Token token) override {
        return Find(std::move(token));
    }
    std::shared_ptr<ClientCommunications::IFoundServices> Find(Cancellation::Token) override {
        if (onFind) onFind();
        return std::make_shared<Found>(MakeServices(local), MakeServices(remote));
    }

    std::vector<std::string> local;
    std::vector<std::string> remote;
    std::function<void()> onFind;  // may throw

private:
    class Found : public ClientCommunications::IFoundServices {
    public:
        using Services = std::list<std::shared_ptr<ClientCommunications::IService>>;
        Found(Services local, Services remote) : local(std::move(local)), remote(std::move(remote)) {}
        Services GetAll() const override { return {}; }
        Services GetLocal() const override { return local; }
        void AddLocal(std::shared_ptr<ClientCommunications::IService>) override {}
        void AddLocal(Services) override {}
        Services GetRemote() const override { return remote; }
        void AddRemote(std::shared_ptr<ClientCommunications::IService>) override {}
        void AddRemote(Services) override {}
        void CopyFrom(std::shared_ptr<IFoundServices>) override {}

    private:
        const Services local;
        const Services remote;
    };
};

/// A wait is over at once, for the thread that waited; nobody else's time passes.
class LockFreeClock : public Platform::IClock {
public:
    TimePoint Now() override { return TimePoint(Passed()); }
    Duration SteadyNow() override { return Passed(); }
    void Wait(std::condition_variable&, std::unique_lock<std::mutex>& lock, Duration atMost) override {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
        Passed() += atMost;
    }
    void Sleep(Duration slice) override { Passed() += slice; }

private:
    static Duration& Passed() {
        thread_local Duration passed{};
        return passed;
    }
};

}  // namespace Ombry::Tests
