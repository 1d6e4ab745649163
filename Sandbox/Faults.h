#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Sandbox {

/// What goes wrong with one request.
struct Fault {
    enum class Kind { Status, Delay, Reset, Cut, Silence };
    Kind kind = Kind::Status;
    int argument = 0;  ///< status code, or milliseconds
};

/// "status=503", as faults are asked for.
std::string TextOf(const Fault& fault);

/// A fault for the next `count` requests below a path.
struct FaultRule {
    std::string path;
    long count;
    Fault fault;
};

/// Faults on demand: each stands for a number of requests below a path. Any thread may call it.
class Faults {
public:
    /// Adds "PATH:COUNT:KIND"; `std::invalid_argument` with a message for the user.
    void Add(const std::string& text);

    /// The fault of a request for `path`, counted down; the oldest that fits comes first.
    std::optional<Fault> Take(const std::string& path);

    /// What is still to come, the oldest first.
    std::vector<FaultRule> Waiting() const;

    /// Takes back what is still to come of one kind: its word before the equals sign. `std::invalid_argument`
    /// with a message for the user.
    void Remove(const std::string& kind);

private:
    mutable std::mutex mutex;
    std::vector<FaultRule> rules;  // guarded by mutex
};

}  // namespace Ombry::Sandbox
