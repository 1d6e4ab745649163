#include "Sandbox/Registration.h"

#include "Platform/IClock.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

namespace Ombry::Sandbox {
namespace {

void LogFailure(const std::runtime_error& failure) {
    std::fprintf(stderr, "ombry-sandbox: %s\n", failure.what());
}

}  // namespace

Registration::Registration(State& state, InstanceRecord instance)
    : state(state), instance(std::move(instance)) {
    Beat();
    thread = std::thread([this] { Run(); });
}

Registration::~Registration() {
    if (!thread.joinable()) return;
    try {
        Withdraw();
    } catch (const std::runtime_error& failure) {
        LogFailure(failure);
    }
}

void Registration::Withdraw() {
    {
        std::lock_guard guard(mutex);
        stopping = true;
        condition.notify_all();
    }
    thread.join();
    state.RemoveInstance(instance.baseUrl);
}

void Registration::Beat() {
    const std::int64_t now = Platform::WallSeconds();
    state.AddInstance(instance, now);
    state.RemoveExpired(now, now - std::chrono::seconds(LongestSilence).count());
}

void Registration::Run() {
    std::unique_lock lock(mutex);
    while (!Platform::WaitFor(condition, lock, Interval, [this] { return stopping; })) {
        lock.unlock();
        try {
            Beat();
        } catch (const std::runtime_error& failure) {
            LogFailure(failure);
        }
        lock.lock();
    }
}

}  // namespace Ombry::Sandbox
