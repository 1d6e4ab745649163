#include "StopSignals.h"

#include <pthread.h>

#include <csignal>
#include <thread>

namespace Example {

// A signal handler may do next to nothing: no lock, no allocation, no logging. So there is none. The signals
// are blocked, and one thread waits for them as for any other event. Threads inherit the block, so this must
// be made before anything starts one.
class StopSignals::System {
public:
    explicit System(const Ombry::Cancellation::Token& token) {
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        waiter = std::thread([this, token] {
            int signal = 0;
            sigwait(&signals, &signal);
            token.Cancel();
        });
    }

    ~System() {
        // Wakes a thread that nobody has signalled; one that has seen its signal leaves this one pending,
        // blocked.
        pthread_kill(waiter.native_handle(), SIGTERM);
        waiter.join();
    }

private:
    sigset_t signals;
    std::thread waiter;
};

StopSignals::StopSignals(Ombry::Cancellation::Token token) : system(std::make_unique<System>(token)) {}

StopSignals::~StopSignals() = default;

}  // namespace Example
