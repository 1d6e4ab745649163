#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// Watches the system calls that this thread makes through the C library while the object lives, and fails
/// those that a test chose. Watched are the calls that change something, can fail in a way that matters, or
/// may be interrupted; SystemCalls.cpp lists them. One object a thread at a time.
class SystemCalls {
public:
    struct Call {
        std::string name;
        std::string text;         ///< a path, if it has one
        long long argument = -1;  ///< descriptor, time-out, mode, address: what its tests look at
    };

    SystemCalls();
    ~SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;

    /// Fails the n-th watched call, counted from 1, with that number.
    void FailNth(std::size_t n, int error) { failAt = n, failAtError = error; }

    /// Fails the first `times` calls of that name with that number.
    void Fail(const std::string& name, int error, int times = 1) {
        failName = name, failError = error, failTimes = times;
    }

    /// Called before a watched call has any effect.
    void Before(std::function<void(const Call&)> hook) { before = std::move(hook); }

    /// Lets a read or a write move no more than that many bytes.
    void LimitTransfers(std::size_t bytes) { transferLimit = bytes; }
    std::size_t TransferLimit() const { return transferLimit; }

    /// Lets a wait end as if its time had passed, whatever time that was.
    void ExpireWaits() { waitsExpire = true; }
    bool WaitsExpire() const { return waitsExpire; }

    const std::vector<Call>& Calls() const { return calls; }
    std::vector<std::string> Names() const;
    std::size_t Count(const std::string& name) const;

    /// For the wrappers: records the call; the error to fail it with, or 0.
    int Record(Call call);

private:
    std::vector<Call> calls;
    std::size_t failAt = 0;
    int failAtError = 0;
    std::string failName;
    int failError = 0;
    int failTimes = 0;
    std::function<void(const Call&)> before;
    std::size_t transferLimit = std::numeric_limits<std::size_t>::max();
    bool waitsExpire = false;
};

}  // namespace Ombry::Tests
