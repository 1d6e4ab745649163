#pragma once

#include <atomic>
#include <mutex>

namespace OmbryZephCore {

#ifdef _GLIBCXX_HAVE_PLATFORM_WAIT

/// A mutex for what one thread nearly always has to itself: without a wait, locking and unlocking are one
/// atomic step each and no call. A request passes some twenty of them. Not recursive; for `std::lock_guard`.
class ZephMutex {
public:
    ZephMutex() = default;
    ZephMutex(const ZephMutex&) = delete;
    ZephMutex& operator=(const ZephMutex&) = delete;

    void lock() {
        State expected = State::Free;
        if (!m_State.compare_exchange_strong(expected, State::Held)) [[unlikely]]
            Wait();
    }

    /// Whoever gets the mutex may end it at once: what is notified behind that is an address.
    void unlock() {
        if (m_State.exchange(State::Free) == State::WaitedFor) [[unlikely]]
            Notify();
    }

private:
    enum class State : int {
        Free,
        Held,       ///< by a thread for which nobody waits
        WaitedFor,  ///< held, and perhaps waited for
    };

    // Both apart, so that little code stands at each lock.

    // Whoever has waited cannot tell whether others still do, and so holds it as one that is waited for.
    [[gnu::cold, gnu::noinline]] void Wait() {
        while (m_State.exchange(State::WaitedFor) != State::Free)
            m_State.wait(State::WaitedFor);
    }

    [[gnu::cold, gnu::noinline]] void Notify() { m_State.notify_one(); }

    std::atomic<State> m_State = State::Free;
};

#else

/// Where the standard library has to make its own waits for atomics, that of GCC 12 can miss a notification
/// that comes between its look at the value and its sleep.
using ZephMutex = std::mutex;

#endif

}  // namespace OmbryZephCore
