#include "tests/Fakes/FailingThreads.h"

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

// The linker sends whoever calls the library's function of that name here, the standard library too.
extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*work)(void*), void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*work)(void*), void* argument) {
    using Ombry::Tests::failing;
    if (failing && failing->FailsNext()) return EAGAIN;
    return __real_pthread_create(thread, attributes, work, argument);
}
