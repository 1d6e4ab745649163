#pragma once

#include "tests/EndToEnd/Machine.h"

#include <map>
#include <regex>
#include <string>

namespace Ombry::Tests {

/// One system call of a run: the name, which one of that name it is, counted from 1, and the line of the
/// trace.
struct TracedCall {
    std::string name;
    int number;
    std::string line;
};

/// All system calls that the main thread of a run of the tool makes, in order.
inline std::vector<TracedCall> TraceOf(const Machine& machine, const Words& words) {
    const std::string path = machine.Folder() / "trace";
    machine.RunBelow({"strace", "-y", "-o", path}, words);
    std::istringstream text(machine.Folder().Read("trace"));
    std::filesystem::remove(path);
    std::vector<TracedCall> calls;
    std::map<std::string, int> counts;
    for (std::string line; std::getline(text, line);) {
        const std::string name = line.substr(0, line.find('('));
        if (!std::regex_match(name, std::regex("[a-z0-9_]+"))) continue;  // exit and signal lines
        calls.push_back({name, ++counts[name], line});
    }
    return calls;
}

/// Whether a path is that of a file that has not got its name yet.
inline bool IsTemporary(const std::string& path) {
    return std::regex_search(path, std::regex("/\\.ombry-[0-9a-f]{16}\\.tmp$"));
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
