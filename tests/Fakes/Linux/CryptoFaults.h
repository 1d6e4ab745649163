#pragma once

#include <functional>

namespace Ombry::Tests {

/// While it lives, the n-th call, counted from 1, of the calling thread to a function of the crypto library
/// fails as it does without memory, and leaves an error in the queue. `CryptoFaults.cpp` says which functions
/// can fail. One at a time.
class CryptoFault {
public:
    explicit CryptoFault(int n);
    ~CryptoFault();
    CryptoFault(const CryptoFault&) = delete;
    CryptoFault& operator=(const CryptoFault&) = delete;

    /// Whether the call has come.
    bool Happened() const;
};

/// While it lives, the next call of the calling thread to one of those functions is preceded by one of
/// `hook`.
class BeforeCryptoCall {
public:
    explicit BeforeCryptoCall(std::function<void()> hook);
    ~BeforeCryptoCall();
    BeforeCryptoCall(const BeforeCryptoCall&) = delete;
    BeforeCryptoCall& operator=(const BeforeCryptoCall&) = delete;
};

}  // namespace Ombry::Tests
