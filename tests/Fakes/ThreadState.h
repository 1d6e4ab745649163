#pragma once

#include <cstdint>

/// What a thread is doing, as far as the system tells another. Each system has a source of its own for it.
namespace Ombry::Tests::ThreadState {

/// Names the calling thread to others; never 0.
std::intptr_t ThisThread();

/// Whether that thread waits in the system, for a lock or for something else. False once it has ended.
bool IsAsleep(std::intptr_t thread);

}  // namespace Ombry::Tests::ThreadState
