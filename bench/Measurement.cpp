#include "bench/Measurement.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace Ombry::Bench {
namespace {

constexpr int NotStarted = 127;

double Read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// In the child, between fork and exec.
[[noreturn]] void Become(std::vector<char*>& arguments, int output, const char* folder) {
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(output < 0 ? null : output, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    if (folder == nullptr || chdir(folder) == 0) execvp(arguments.front(), arguments.data());
    _exit(NotStarted);
}

}  // namespace

double Now() {
    return Read(CLOCK_MONOTONIC);
}

double ProcessorTime() {
    return Read(CLOCK_PROCESS_CPUTIME_ID);
}

double Median(std::vector<double> values) {
    if (values.empty()) throw std::runtime_error("Nothing was measured.");
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void StayOnOneProcessor() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    int last = 0;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &allowed)) last = i;
    }
    CPU_ZERO(&allowed);
    CPU_SET(last, &allowed);
    if (sched_setaffinity(0, sizeof allowed, &allowed) != 0) {
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
    }
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "ombry-bench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

pid_t Start(const std::vector<std::string>& command, int output, const char* folder) {
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    // Cheap and the same for every program, however much memory this one holds.
    const pid_t process = vfork();
    if (process == 0) Become(arguments, output, folder);
    if (process < 0) throw std::system_error(errno, std::generic_category(), "vfork");
    return process;
}

int Wait(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Run(const std::vector<std::string>& command, int output, const char* folder) {
    const int code = Wait(Start(command, output, folder));
    if (code == NotStarted) throw std::runtime_error("Cannot start " + command.front());
    return code;
}

Background::~Background() {
    kill(process, SIGTERM);
    Wait(process);
}

int RunBenchmark(const char* name, void (*measure)(int rounds), int defaultRounds, int argc, char** argv) {
    try {
        const int rounds = argc > 1 ? std::atoi(argv[1]) : defaultRounds;
        measure(rounds > 0 ? rounds : defaultRounds);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", name, failure.what());
        return 1;
    }
}

Report::Report(const std::string& title) {
    std::printf("\n%-46s %9s %11s\n", title.c_str(), "figure", "target");
}

void Report::AtLeast(const std::string& name, double figure, double target, const std::string& remark) {
    char text[32];
    std::snprintf(text, sizeof text, ">= %.2f", target);
    Line(name, figure, text, std::round(figure * 100) >= std::round(target * 100), remark);
}

void Report::AtMost(const std::string& name, double figure, double target, const std::string& remark) {
    char text[32];
    std::snprintf(text, sizeof text, "<= %.2f", target);
    // As printed: a stray call among thousands is no call of a request.
    Line(name, figure, text, std::round(figure * 100) <= std::round(target * 100), remark);
}

void Report::Plain(const std::string& name, double figure, const std::string& remark) {
    Line(name, figure, "", true, remark);
}

void Report::Line(const std::string& name, double figure, const std::string& target, bool reached,
                  const std::string& remark) {
    std::printf("%-46s %9.2f %11s  %s%s\n", name.c_str(), figure, target.c_str(),
                target.empty() ? "" : (reached ? "reached  " : "MISSED   "), remark.c_str());
    std::fflush(stdout);
}

}  // namespace Ombry::Bench
