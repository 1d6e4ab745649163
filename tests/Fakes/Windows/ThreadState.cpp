#include "tests/Fakes/ThreadState.h"

#include <pthread.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <new>

// Wine does not tell what a thread waits for. The linker sends whoever takes a lock, or waits for a
// condition, here first, the standard library too.
namespace Ombry::Tests::ThreadState {
namespace {

using Waits = std::atomic<int>;

constinit std::atomic<DWORD> slot{TLS_OUT_OF_INDEXES};

DWORD Slot() {
    DWORD known = slot;
    if (known != TLS_OUT_OF_INDEXES) return known;
    const DWORD made = TlsAlloc();
    if (slot.compare_exchange_strong(known, made)) return made;
    TlsFree(made);
    return known;
}

/// How many waits the calling thread is in; others may look at it after its end. In the system's own storage
/// of a thread: a thread that the library is still making may have to wait for a lock of the library's, and
/// what is `thread_local` would make it another one by then, which never gets to its work. So would `new`,
/// where tests count by a `thread_local` what it is asked for.
Waits& WaitsOfThisThread() {
    const DWORD place = Slot();
    auto* waits = static_cast<Waits*>(TlsGetValue(place));
    if (!waits) {
        waits = new (std::malloc(sizeof(Waits))) Waits(0);
        TlsSetValue(place, waits);
    }
    return *waits;
}

class Waiting {
public:
    Waiting() { ++waits; }
    ~Waiting() { --waits; }

private:
    Waits& waits = WaitsOfThisThread();
};

}  // namespace

std::intptr_t ThisThread() {
    return reinterpret_cast<std::intptr_t>(&WaitsOfThisThread());
}

bool IsAsleep(std::intptr_t thread) {
    return *reinterpret_cast<const Waits*>(thread) > 0;
}

}  // namespace Ombry::Tests::ThreadState

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (pthread_mutex_trylock(mutex) == 0) return 0;
    const Ombry::Tests::ThreadState::Waiting waiting;
    return __real_pthread_mutex_lock(mutex);
}

extern "C" int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    const Ombry::Tests::ThreadState::Waiting waiting;
    return __real_pthread_cond_wait(condition, mutex);
}

extern "C" int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             const timespec* until);
extern "C" int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             const timespec* until) {
    const Ombry::Tests::ThreadState::Waiting waiting;
    return __real_pthread_cond_timedwait(condition, mutex, until);
}
