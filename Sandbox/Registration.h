#pragma once

#include "Sandbox/State.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Ombry::Sandbox {

/// An instance's place in what discovery tells, for as long as this lives. A thread of its own says over and
/// over that the instance is there, and removes what is over: tokens that have expired, and instances that
/// were killed and so have said nothing for a while.
class Registration {
public:
    static constexpr auto Interval = std::chrono::seconds(5);
    static constexpr auto LongestSilence = std::chrono::seconds(15);

    /// @throws std::runtime_error if the database fails; afterwards its failures are logged, and the next
    /// round tries again
    Registration(State& state, InstanceRecord instance);
    ~Registration();  // withdraws, if that was not done
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    /// Ends it. @throws std::runtime_error if the database fails; the others miss the instance before long
    void Withdraw();

private:
    void Beat();
    void Run();

    State& state;
    const InstanceRecord instance;
    std::mutex mutex;
    std::condition_variable condition;
    bool stopping = false;  // guarded by mutex
    std::thread thread;
};

}  // namespace Ombry::Sandbox
