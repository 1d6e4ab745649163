#pragma once

#include <pthread.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Ombry::Tests {

/// Runs a function on a stack that stays when the function has returned, for a look at what it left there.
class OwnStack {
public:
    /// Waits for the end of `work`. Called once.
    void Run(std::function<void()> work) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_t thread;
        const bool started = pthread_attr_setstack(&attributes, memory.data(), memory.size()) == 0 &&
                             pthread_create(&thread, &attributes, Call, &work) == 0;
        pthread_attr_destroy(&attributes);
        if (!started) throw std::runtime_error("no thread on a stack of its own");
        pthread_join(thread, nullptr);
    }

    /// Calls `work` far down the stack, where nothing that comes afterwards writes over what it left.
    template <class Work>
    [[gnu::noinline]] static auto FarDown(Work work) {
        volatile char room[1 << 16];
        room[0] = 0;
        static_cast<void>(room[0]);
        return work();
    }

    bool Holds(std::string_view bytes) const {
        return std::search(memory.begin(), memory.end(), bytes.begin(), bytes.end()) != memory.end();
    }

private:
    static void* Call(void* work) {
        (*static_cast<std::function<void()>*>(work))();
        return nullptr;
    }

    std::vector<char> memory = std::vector<char>(1 << 20);
};

}  // namespace Ombry::Tests
