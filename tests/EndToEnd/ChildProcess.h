#pragma once

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern "C" char** environ;

namespace Ombry::Tests {

/// What a program left behind. The exit code is the shell's: 128 and the number of the signal that ended it.
struct ProcessOutcome {
    int exitCode;
    std::string out;
    std::string error;
    std::string words;  ///< what was run, for whoever reads of a failure
};

struct ProcessOptions {
    std::string folder = ".";
    std::vector<std::string> environment = {};  ///< "NAME=value", beside what this process has
    int inherited = -1;                         ///< a descriptor that the program finds as number 3
};

/// A running program whose standard output and error streams are collected. Its end is waited for with a
/// limit that only a hanging program reaches.
class ChildProcess {
public:
    static constexpr int LimitMilliseconds = 120000;

    explicit ChildProcess(const std::vector<std::string>& words, const ProcessOptions& options = {})
        : name(words.at(0)) {
        for (const std::string& word : words)
            line += word + ' ';
        int outEnds[2];
        int errorEnds[2];
        if (pipe2(outEnds, O_CLOEXEC) != 0 || pipe2(errorEnds, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        const int failure = Spawn(words, options, outEnds[1], errorEnds[1]);
        close(outEnds[1]);
        close(errorEnds[1]);
        out.reader = std::thread([this, end = outEnds[0]] { Collect(end, out); });
        error.reader = std::thread([this, end = errorEnds[0]] { Collect(end, error); });
        if (failure != 0) {
            JoinReaders();
            throw std::runtime_error("cannot run " + name + ": " + std::strerror(failure));
        }
    }

    ~ChildProcess() {
        if (!outcome) {
            Signal(SIGKILL);
            Wait();
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Id() const { return id; }

    /// Nothing once the program has been waited for.
    void Signal(int signal) const {
        if (!outcome) kill(id, signal);
    }

    /// The first line of the output that begins with `start`, without its end, as soon as it is there. Throws
    /// if the program ends without it.
    std::string AwaitLine(const std::string& start = "") {
        std::unique_lock guard(mutex);
        for (;;) {
            for (std::size_t begin = 0, end; (end = out.text.find('\n', begin)) != std::string::npos;
                 begin = end + 1) {
                if (out.text.compare(begin, start.size(), start) == 0)
                    return out.text.substr(begin, end - begin);
            }
            if (out.ended) throw std::runtime_error(name + " ended early: " + out.text + error.text);
            changed.wait(guard);
        }
    }

    bool HasBeenWaitedFor() const { return outcome.has_value(); }

    /// Waits for the end of the program and returns all that it wrote.
    const ProcessOutcome& Wait() {
        if (outcome) return *outcome;
        const int exitCode = Reap();
        JoinReaders();
        outcome = ProcessOutcome{exitCode, out.text, error.text, line};
        return *outcome;
    }

private:
    struct Stream {
        std::string text;
        bool ended = false;
        std::thread reader;
    };

    int Spawn(const std::vector<std::string>& words, const ProcessOptions& options, int outEnd,
              int errorEnd) {
        std::vector<char*> argv;
        for (const std::string& word : words)
            argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);
        std::vector<char*> variables;
        for (const std::string& variable : options.environment)
            variables.push_back(const_cast<char*>(variable.c_str()));
        for (char** variable = environ; *variable; ++variable)
            variables.push_back(*variable);
        variables.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, outEnd, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, errorEnd, STDERR_FILENO);
        if (options.inherited >= 0) posix_spawn_file_actions_adddup2(&actions, options.inherited, 3);
        posix_spawn_file_actions_addchdir_np(&actions, options.folder.c_str());
        const int failure = posix_spawnp(&id, argv[0], &actions, nullptr, argv.data(), variables.data());
        posix_spawn_file_actions_destroy(&actions);
        return failure;
    }

    int Reap() {
        const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, id, 0));
        pollfd wanted{descriptor, POLLIN, 0};
        int ready;
        do {
            ready = poll(&wanted, 1, LimitMilliseconds);
        } while (ready < 0 && errno == EINTR);
        close(descriptor);
        if (ready == 0) Signal(SIGKILL);  // shows as exit code 137
        int status = 0;
        while (waitpid(id, &status, 0) < 0 && errno == EINTR) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    void Collect(int end, Stream& stream) {
        char bytes[65536];
        for (;;) {
            const ssize_t count = read(end, bytes, sizeof bytes);
            if (count < 0 && errno == EINTR) continue;
            std::lock_guard guard(mutex);
            if (count <= 0) stream.ended = true;
            if (count > 0) stream.text.append(bytes, static_cast<std::size_t>(count));
            changed.notify_all();
            if (count <= 0) break;
        }
        close(end);
    }

    void JoinReaders() {
        out.reader.join();
        error.reader.join();
    }

    const std::string name;
    std::string line;  // of words, constant from the start on
    pid_t id = -1;
    std::optional<ProcessOutcome> outcome;
    std::mutex mutex;
    std::condition_variable changed;
    Stream out;    // text and end guarded by mutex
    Stream error;  // likewise
};

/// Runs a program to its end.
inline ProcessOutcome RunProcess(const std::vector<std::string>& words, const ProcessOptions& options = {}) {
    return ChildProcess(words, options).Wait();
}

}  // namespace Ombry::Tests
