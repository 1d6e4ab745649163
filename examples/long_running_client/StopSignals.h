#pragma once

#include "Cancellation/Token.h"

#include <csignal>
#include <thread>

namespace Example {

/// Turns the first SIGINT or SIGTERM into the cancellation of a token.
///
/// A signal handler may do next to nothing: no lock, no allocation, no logging. So there is none. The signals
/// are blocked, and one thread waits for them as for any other event. Threads inherit the block, so this
/// object must be made before anything starts one, the client libraries included.
class StopSignals {
public:
    explicit StopSignals(Ombry::Cancellation::Token token);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    sigset_t signals;
    std::thread waiter;
};

}  // namespace Example
