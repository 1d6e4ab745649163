#include "tests/Fakes/FailingThreads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

namespace Ombry::Tests {
namespace {

thread_local FailingThreads* failing = nullptr;

}  // namespace

FailingThreads::FailingThreads(std::size_t n) : failAt(n) {
    failing = this;
}

FailingThreads::~FailingThreads() {
    failing = nullptr;
}

}  // namespace Ombry::Tests

#if defined(__SANITIZE_THREAD__) && defined(__clang__)
// The sanitizer's own, which is linked into the executable and has to learn of each thread.
extern "C" int __interceptor_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                            void* (*work)(void*), void* argument) noexcept;
#endif

// Stands before the C library's function of the same name, for the standard library too.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*work)(void*),
                                                                     void* argument) noexcept {
    using Ombry::Tests::failing;
    if (failing && failing->FailsNext()) return EAGAIN;
#if defined(__SANITIZE_THREAD__) && defined(__clang__)
    return __interceptor_pthread_create(thread, attributes, work, argument);
#else
    static const auto real = reinterpret_cast<decltype(pthread_create)*>(dlsym(RTLD_NEXT, "pthread_create"));
    return real(thread, attributes, work, argument);
#endif
}
