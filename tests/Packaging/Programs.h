#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// What a command of the shell gave back, both of its streams in one text.
struct ShellRun {
    int exitCode = -1;
    std::string output = {};

    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::istringstream text(output);
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }
};

/// Runs one command line with bash.
inline ShellRun Shell(const std::string& command) {
    std::string quoted;
    for (const char c : command)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(("bash -c '" + quoted + "' 2>&1").c_str(), "r"),
                                                     [](FILE*) { return 0; });
    if (!pipe) throw std::runtime_error("cannot start a shell");
    std::string output;
    std::array<char, 4096> part;
    for (std::size_t count; (count = fread(part.data(), 1, part.size(), pipe.get())) > 0;)
        output.append(part.data(), count);
    const int status = pclose(pipe.get());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

}  // namespace Ombry::Tests
