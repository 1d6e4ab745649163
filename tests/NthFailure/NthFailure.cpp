#include "tests/NthFailure/NthFailure.h"

#include <openssl/crypto.h>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Ombry::Tests {
namespace {

std::atomic<NthFailure*> current = nullptr;
std::atomic<std::size_t> threads = 0;
std::atomic<long> liveBlocks = 0;
thread_local std::size_t thisThread = NthFailure::Foreign;
thread_local int pauses = 0;

// What a crash is to be named after; a handler of signals may read it.
char place[256] = "nothing";

void NameThePlace(int signal) {
    static const char text[] = "\nended by a signal with ";
    static_cast<void>(write(STDERR_FILENO, text, sizeof text - 1) +
                      write(STDERR_FILENO, place, std::strlen(place)) + write(STDERR_FILENO, "\n", 1));
    ::signal(signal, SIG_DFL);
    raise(signal);
}

void* AllocateForCrypto(std::size_t size, const char*, int) {
    if (size == 0 || NthFailure::Strikes(NthFailure::Of::CryptoAllocation)) return nullptr;
    const NthFailure::Pause pause;
    return std::malloc(size);
}

void FreeForCrypto(void* memory, const char*, int) {
    std::free(memory);
}

void* ReallocateForCrypto(void* memory, std::size_t size, const char* file, int line) {
    if (!memory) return AllocateForCrypto(size, file, line);
    if (size == 0) return std::free(memory), nullptr;
    return NthFailure::Strikes(NthFailure::Of::CryptoAllocation) ? nullptr : std::realloc(memory, size);
}

// Taken by the library only before its first allocation.
[[maybe_unused]] const int taken =
    CRYPTO_set_mem_functions(AllocateForCrypto, ReallocateForCrypto, FreeForCrypto) == 1 ? 1
                                                                                         : (std::abort(), 0);

struct Start {
    void* (*work)(void*);
    void* argument;
    std::size_t thread;
};

void* Run(void* start) {
    const Start started = *static_cast<Start*>(start);
    std::free(start);
    thisThread = started.thread;
    return started.work(started.argument);
}

}  // namespace

std::string NthFailure::Plan::Text() const {
    static const char* const kinds[] = {"no allocation",
                                        "no allocation of the crypto library",
                                        "no start of a thread",
                                        "no call of the platform",
                                        "the clock ahead at look",
                                        "the clock back at look",
                                        "the connection reset behind byte sent",
                                        "the connection reset behind byte received",
                                        "the connection ended behind byte received",
                                        "the connection silent behind byte received"};
    return std::string(kinds[static_cast<int>(what)]) + " " + std::to_string(n) + " of thread " +
           std::to_string(thread) + (forGood ? ", for good" : "");
}

NthFailure::NthFailure(const Plan& plan) : plan(plan) {
    std::snprintf(place, sizeof place, "%s", plan.Text().c_str());
    for (const int signal : {SIGABRT, SIGSEGV, SIGALRM})
        ::signal(signal, NameThePlace);
    alarm(60);  // a hang has a name as well
    threads = 0;
    thisThread = 0;
    current = this;
}

NthFailure::~NthFailure() {
    current = nullptr;
    thisThread = Foreign;
    alarm(0);
    for (const int signal : {SIGABRT, SIGSEGV, SIGALRM})
        ::signal(signal, SIG_DFL);
}

NthFailure::Pause::Pause() {
    ++pauses;
}

NthFailure::Pause::~Pause() {
    --pauses;
}

void NthFailure::SpareThisThread() {
    ++pauses;
}

NthFailure* NthFailure::About(Of what) {
    if (thisThread == Foreign || pauses != 0) return nullptr;
    NthFailure* const failure = current;
    return failure && failure->plan.what == what && failure->plan.thread == thisThread ? failure : nullptr;
}

bool NthFailure::Strikes(Of what) {
    NthFailure* const failure = About(what);
    if (!failure) return false;
    const std::size_t n = ++failure->count;
    return failure->plan.forGood ? failure->HasHappened() : n == failure->plan.n;
}

std::size_t NthFailure::Before(Of what, std::size_t bytes) {
    const NthFailure* const failure = About(what);
    if (!failure || failure->count >= failure->plan.n) return bytes;
    return std::min(bytes, failure->plan.n - failure->count);
}

bool NthFailure::StrikesBehind(Of what, std::size_t bytes) {
    NthFailure* const failure = About(what);
    if (!failure || failure->HasHappened()) return false;
    failure->count += bytes;
    return failure->HasHappened();
}

bool NthFailure::HasStruckForGood(Of what) {
    const NthFailure* const failure = About(what);
    return failure && failure->plan.forGood && failure->HasHappened();
}

std::size_t NthFailure::ThisThread() {
    return thisThread;
}

long NthFailure::LiveBlocks() {
    return liveBlocks;
}

}  // namespace Ombry::Tests

// The linker leads `malloc` and `free` of everything in the executable here, and the real ones stand under
// these names.
extern "C" {
void* __real_malloc(std::size_t size);
void __real_free(void* memory);
void* __wrap_malloc(std::size_t size);
void __wrap_free(void* memory);

void* __wrap_malloc(std::size_t size) {
    using Ombry::Tests::NthFailure;
    if (NthFailure::Strikes(NthFailure::Of::Allocation)) return nullptr;
    void* const memory = __real_malloc(size);
    if (memory) ++Ombry::Tests::liveBlocks;
    return memory;
}

void __wrap_free(void* memory) {
    if (memory) --Ombry::Tests::liveBlocks;
    __real_free(memory);
}
}

// These stand before those of the libraries, also for the libraries themselves.

void* operator new(std::size_t size) {
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*work)(void*),
                                                                     void* argument) noexcept {
    using namespace Ombry::Tests;
    static const auto real = reinterpret_cast<decltype(pthread_create)*>(dlsym(RTLD_NEXT, "pthread_create"));
    if (thisThread == NthFailure::Foreign || pauses != 0) return real(thread, attributes, work, argument);
    if (NthFailure::Strikes(NthFailure::Of::ThreadStart)) return EAGAIN;
    const NthFailure::Pause pause;
    void* const start = std::malloc(sizeof(Start));
    const int error = real(thread, attributes, Run, new (start) Start{work, argument, ++threads});
    if (error != 0) std::free(start);
    return error;
}
