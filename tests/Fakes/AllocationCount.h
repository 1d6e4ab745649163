#pragma once

#include <cstddef>

namespace Ombry::Tests {

/// Allocations that the calling thread has made so far with `new`. An executable that uses it compiles one
/// source that counts them.
std::size_t AllocationsOfThisThread();

/// Lets the n-th allocation that this thread makes with `new`, counted from 1, fail while the object lives.
/// One object a thread at a time.
class FailingAllocation {
public:
    /// The sanitizers have operators of their own: nothing fails there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool Fails = false;
#else
    static constexpr bool Fails = true;
#endif

    explicit FailingAllocation(std::size_t n);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether there were that many.
    bool Failed() const;
};

}  // namespace Ombry::Tests
