#include "StopSignals.h"

#include <windows.h>

#include <mutex>

namespace Example {

// The system tells of an event on a thread of its own, which may do what any thread may. After the closing
// of a console, a session or the machine it ends the process as soon as that thread returns, so there the
// thread never does: the program comes to its end by itself, and takes the thread with it, or the system
// loses its patience.
//
// Meanwhile the system may hold the lock of its list of handlers, so this one is never taken off the list.
class StopSignals::System {
public:
    explicit System(const Ombry::Cancellation::Token& token) : token(token) {
        static const BOOL listed = SetConsoleCtrlHandler(&Handle, TRUE);
        static_cast<void>(listed);
        const std::lock_guard guard(mutex);
        current = this;
    }

    ~System() {
        const std::lock_guard guard(mutex);
        current = nullptr;
    }

private:
    static BOOL WINAPI Handle(DWORD event) {
        std::unique_lock guard(mutex);
        if (!current) return FALSE;
        const Ombry::Cancellation::Token token = current->token;
        guard.unlock();  // the token's callbacks may need it
        token.Cancel();
        if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
        return TRUE;
    }

    static inline std::mutex mutex;
    static inline System* current = nullptr;  // guarded by mutex

    const Ombry::Cancellation::Token token;
};

StopSignals::StopSignals(Ombry::Cancellation::Token token) : system(std::make_unique<System>(token)) {}

StopSignals::~StopSignals() = default;

}  // namespace Example
