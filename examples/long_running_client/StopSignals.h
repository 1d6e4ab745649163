#pragma once

#include "Cancellation/Token.h"

#include <memory>

namespace Example {

/// Turns the first request to end into the cancellation of a token: SIGINT and SIGTERM on Linux; on Windows
/// Ctrl+C, Ctrl+Break, the closing of the console, the end of the session, and the stop of the machine.
///
/// Made before anything starts a thread, the client libraries included; one at a time.
class StopSignals {
public:
    explicit StopSignals(Ombry::Cancellation::Token token);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    class System;
    const std::unique_ptr<System> system;
};

}  // namespace Example
