#pragma once

#include "tests/EndToEnd/Faults/Leftovers.h"
#include "tests/EndToEnd/Machine.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Tests {

/// One system call of a run: the name, which one of that name it is, counted from 1, and the line of the
/// trace.
struct TracedCall {
    std::string name;
    int number;
    std::string line;
};

/// All system calls that the main thread of a run of the tool makes, in order; of a run below Wine, which
/// makes ten thousand, those that the functions below look at.
inline std::vector<TracedCall> TraceOf(const Machine& machine, const Words& words) {
    const std::string path = machine.Folder() / "trace";
    Words runner{"strace", "-y", "-o", path};
    if (ToolUnderTest::IsForWindows()) {
        runner.insert(runner.end(), {"-yy", "-s", "500", "-e", "trace=write,writev,fsync,sendmsg"});
    }
    machine.RunBelow(runner, words);
    std::istringstream text(machine.Folder().Read("trace"));
    std::filesystem::remove(path);
    static const std::regex call("[a-z0-9_]+");
    std::vector<TracedCall> calls;
    std::map<std::string, int> counts;
    for (std::string line; std::getline(text, line);) {
        const std::string name = line.substr(0, line.find('('));
        if (!std::regex_match(name, call)) continue;  // exit and signal lines
        calls.push_back({name, ++counts[name], line});
    }
    return calls;
}

/// The calls that change the state of the machine, of a run of the tool for Linux.
inline std::vector<TracedCall> ChangesOnLinux(const std::vector<TracedCall>& calls) {
    static const std::regex names(
        "openat|mkdir|chmod|fchmod|fallocate|write|ftruncate|fsync|fdatasync|rename|renameat2?|link|unlink|"
        "flock");
    std::vector<TracedCall> changes;
    for (const TracedCall& call : calls) {
        if (std::regex_match(call.name, names) && call.line.find("Quennet") != std::string::npos)
            changes.push_back(call);
    }
    return changes;
}

/// The same below Wine. There the process writes the content of a file itself; the rest is done by a process
/// of Wine's own, which it asks by a `writev` with the name of what is meant, in 16 bits. Most of what it
/// asks are looks, and to be killed at a look is to be killed at the change behind it. So of those that
/// follow each other only the last and the first are kept: what makes a file stands right before its content,
/// and what gives it its name right behind.
inline std::vector<TracedCall> ChangesBelowWine(const std::vector<TracedCall>& calls) {
    const auto isContent = [](const TracedCall& call) {
        const bool isOfFile = call.name == "write" || call.name == "fsync";
        const std::string_view valueOfCertificate = R"("B\0l\0o\0b\0", iov_len=8}, {)";
        return call.line.find(isOfFile ? "Quennet" : valueOfCertificate) != std::string::npos;
    };
    const auto isQuestion = [](const TracedCall& call) {
        return call.line.find(R"(Q\0u\0e\0n\0n\0e\0t\0)") != std::string::npos;
    };
    std::vector<TracedCall> named;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(named),
                 [&](const TracedCall& call) { return isContent(call) || isQuestion(call); });
    std::vector<TracedCall> changes;
    for (std::size_t i = 0; i < named.size(); ++i) {
        const bool isBehind = i > 0 && isContent(named[i - 1]);
        const bool isAhead = i + 1 < named.size() && isContent(named[i + 1]);
        if (isContent(named[i]) || isBehind || isAhead) changes.push_back(named[i]);
    }
    return changes;
}

/// The calls of a run by which a kill makes a difference.
inline std::vector<TracedCall> ChangesOf(const Machine& machine, const Words& words) {
    const std::vector<TracedCall> calls = TraceOf(machine, words);
    return ToolUnderTest::IsForWindows() ? ChangesBelowWine(calls) : ChangesOnLinux(calls);
}

/// Runs the tool so that one system call meets its fate: "signal=KILL", or "error=" with the name of an
/// error.
inline ProcessOutcome RunWithFate(const Machine& machine, const TracedCall& call, const std::string& fate,
                                  const Words& words) {
    return machine.RunBelow({"strace", "-qq", "-o", "/dev/null", "-e", "trace=" + call.name, "-e",
                             "inject=" + call.name + ":" + fate + ":when=" + std::to_string(call.number)},
                            words);
}

}  // namespace Ombry::Tests
