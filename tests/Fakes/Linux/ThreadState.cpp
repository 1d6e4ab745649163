#include "tests/Fakes/ThreadState.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace Ombry::Tests::ThreadState {

std::intptr_t ThisThread() {
    return syscall(SYS_gettid);
}

// The state letter of proc(5).
bool IsAsleep(std::intptr_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    const std::size_t end = text.rfind(')');
    return end != std::string::npos && end + 2 < text.size() && text[end + 2] == 'S';
}

}  // namespace Ombry::Tests::ThreadState
