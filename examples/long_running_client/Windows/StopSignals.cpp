#include "StopSignals.h"

#include <windows.h>

#include <condition_variable>
#include <mutex>

namespace Example {

/// The system tells of an event on a thread of its own, which may do what any thread may. After the closing
/// of a console, a session or the machine it ends the process as soon as that thread returns, so there the
/// thread waits until the program has come to its end by itself, or the system loses its patience.
class StopSignals::System {
public:
    explicit System(const Ombry::Cancellation::Token& token) : token(token) {
        const std::lock_guard guard(mutex);
        current = this;
        SetConsoleCtrlHandler(&Handle, TRUE);
    }

    ~System() {
        SetConsoleCtrlHandler(&Handle, FALSE);
        const std::lock_guard guard(mutex);
        current = nullptr;
        ended.notify_all();
    }

private:
    static BOOL WINAPI Handle(DWORD event) {
        std::unique_lock guard(mutex);
        if (!current) return FALSE;
        const Ombry::Cancellation::Token token = current->token;
        guard.unlock();
        token.Cancel();  // whose callbacks may need the lock
        guard.lock();
        if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) ended.wait(guard, [] { return !current; });
        return TRUE;
    }

    static inline std::mutex mutex;
    static inline std::condition_variable ended;
    static inline System* current = nullptr;  // guarded by mutex

    const Ombry::Cancellation::Token token;
};

StopSignals::StopSignals(Ombry::Cancellation::Token token) : system(std::make_unique<System>(token)) {}

StopSignals::~StopSignals() = default;

}  // namespace Example
