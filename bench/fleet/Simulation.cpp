#include "bench/fleet/Simulation.h"

#include <boost/context/fiber.hpp>

#include <cxxabi.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Ombry::Fleet {
namespace {

constexpr std::size_t StackSize = std::size_t{128} * 1024;
constexpr std::size_t PageSize = 4096;
constexpr std::size_t StacksAtOnce = 512;
// Stacks that began at the same place of a page would meet in the same few lines of the processor's caches.
constexpr std::size_t Shifts = 31;
constexpr std::size_t Shift = 2112;

/// The simulation of this thread.
thread_local Simulation* current = nullptr;

[[noreturn]] void Give(const char* reason) {
    std::fprintf(stderr, "Simulation: %s\n", reason);
    std::abort();
}

}  // namespace

/// Memory for stacks, which takes none until it is used. There is no page behind each to fault on, of which
/// the system has too few for tens of thousands; a stack that was used to its last page is found when it is
/// given back.
class Simulation::Stacks {
public:
    ~Stacks() {
        for (void* slab : slabs)
            munmap(slab, StackSize * StacksAtOnce);
    }

    boost::context::stack_context allocate() {
        if (free.empty()) Grow();
        boost::context::stack_context stack;
        stack.size = StackSize - ++given % Shifts * Shift;
        stack.sp = free.back() + stack.size;
        free.pop_back();
        return stack;
    }

    void deallocate(boost::context::stack_context& stack) {
        char* const end = static_cast<char*>(stack.sp) - stack.size;
        unsigned char resident = 0;
        if (mincore(end, PageSize, &resident) != 0 || (resident & 1) != 0) Give("a stack was too short.");
        free.push_back(end);
    }

private:
    void Grow() {
        void* const slab = mmap(nullptr, StackSize * StacksAtOnce, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
        if (slab == MAP_FAILED) throw std::bad_alloc();
        slabs.push_back(slab);
        madvise(slab, StackSize * StacksAtOnce, MADV_NOHUGEPAGE);
        for (std::size_t i = StacksAtOnce; i-- > 0;)
            free.push_back(static_cast<char*>(slab) + i * StackSize);
    }

    std::vector<void*> slabs;
    std::vector<char*> free;
    std::size_t given = 0;
};

struct Simulation::Fiber {
    std::function<void()> work;
    boost::context::fiber context;  // where it goes on; none while it runs
    boost::context::fiber caller;   // who runs it
    std::uint64_t wake = 0;         // the number of the one wake that counts
    bool done = false;
};

Simulation::Simulation(TimePoint theStart)
    : start(theStart), now(theStart), stacks(std::make_unique<Stacks>()) {
    current = this;
}

Simulation::~Simulation() {
    for (const auto& fiber : fibers) {
        if (!fiber->done) Give("a thread was still there at the end.");
    }
    current = nullptr;
}

Simulation::Fiber* Simulation::Start(std::function<void()> work) {
    /// Boost keeps a copy of what allocates.
    struct Allocator {
        Stacks* stacks;
        boost::context::stack_context allocate() { return stacks->allocate(); }
        void deallocate(boost::context::stack_context& stack) { stacks->deallocate(stack); }
    };
    fibers.push_back(std::make_unique<Fiber>());
    Fiber* const fiber = fibers.back().get();
    fiber->work = std::move(work);
    fiber->context = boost::context::fiber(std::allocator_arg, Allocator{stacks.get()},
                                           [fiber](boost::context::fiber&& caller) {
                                               fiber->caller = std::move(caller);
                                               fiber->work();
                                               fiber->work = nullptr;
                                               fiber->done = true;
                                               return std::move(fiber->caller);
                                           });
    WakeAt(*fiber, now);
    return fiber;
}

void Simulation::Join(Fiber* fiber) {
    while (!fiber->done)
        Resume(*fiber);
}

void Simulation::RunUntil(TimePoint end) {
    while (!queue.empty() && queue.top().at <= end) {
        const Wake next = queue.top();
        queue.pop();
        if (next.fiber->done || next.fiber->wake != next.number) continue;
        now = next.at;
        Resume(*next.fiber);
    }
    now = end;
}

void Simulation::Resume(Fiber& fiber) {
    ++wakes;
    Fiber* const before = std::exchange(running, &fiber);
    fiber.context = std::move(fiber.context).resume();
    running = before;
}

void Simulation::WakeAt(Fiber& fiber, TimePoint at) {
    fiber.wake = ++wakeNumber;
    queue.push({at, fiber.wake, &fiber});
}

void Simulation::Wait(std::condition_variable&, std::unique_lock<std::mutex>& lock, Duration atMost) {
    lock.unlock();
    Sleep(atMost);
    lock.lock();
}

void Simulation::Sleep(Duration slice) {
    if (!running) Give("something waited outside of a fiber.");
    // What the language notes of exceptions under way belongs to the thread, which all fibers share.
    if (abi::__cxa_current_exception_type() || std::uncaught_exceptions() != 0)
        Give("something waited while it handled an exception.");
    WakeAt(*running, SaturatingAdd(now, slice));
    Fiber& self = *running;
    self.caller = std::move(self.caller).resume();
}

}  // namespace Ombry::Fleet

// These stand before the C library's functions of the same names, for the standard library too.

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*work)(void*),
                                                                     void* argument) noexcept {
    using Ombry::Fleet::current;
    if (current) {
        *thread = reinterpret_cast<pthread_t>(current->Start([=] { work(argument); }));
        return 0;
    }
    static const auto real = reinterpret_cast<decltype(pthread_create)*>(dlsym(RTLD_NEXT, "pthread_create"));
    return real(thread, attributes, work, argument);
}

extern "C" __attribute__((visibility("default"))) int pthread_join(pthread_t thread, void** result) {
    using Ombry::Fleet::current;
    if (current) {
        current->Join(reinterpret_cast<Ombry::Fleet::Simulation::Fiber*>(thread));
        return 0;
    }
    static const auto real = reinterpret_cast<decltype(pthread_join)*>(dlsym(RTLD_NEXT, "pthread_join"));
    return real(thread, result);
}
