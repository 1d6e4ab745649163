#include "StopSignals.h"

#include <pthread.h>

namespace Example {

StopSignals::StopSignals(Ombry::Cancellation::Token token) {
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

StopSignals::~StopSignals() {
    // Wakes a thread that nobody has signalled; one that has seen its signal leaves this one pending,
    // blocked.
    pthread_kill(waiter.native_handle(), SIGTERM);
    waiter.join();
}

}  // namespace Example
