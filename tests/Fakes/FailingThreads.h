#pragma once

#include <cstddef>

namespace Ombry::Tests {

/// Lets the n-th thread that this thread wants to start, counted from 1, fail to start while the object
/// lives. One object a thread at a time; an executable that uses it compiles one source that watches.
class FailingThreads {
public:
    explicit FailingThreads(std::size_t n);
    ~FailingThreads();
    FailingThreads(const FailingThreads&) = delete;
    FailingThreads& operator=(const FailingThreads&) = delete;

    /// Threads that were to start, the one that failed among them.
    std::size_t Count() const { return count; }

    /// For the watching source: whether the next thread fails.
    bool FailsNext() { return ++count == failAt; }

private:
    const std::size_t failAt;
    std::size_t count = 0;
};

}  // namespace Ombry::Tests
