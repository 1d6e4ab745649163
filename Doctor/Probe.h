#pragma once

#include "Platform/Time.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Ombry::Doctor {

/// How far a connection came, and how long each step took.
struct ProbeOutcome {
    enum class Step { Resolve, Connect, Handshake, Done };

    Step reached = Step::Resolve;  ///< the step that failed, or was under way at the end of its time
    bool isOver = false;           ///< false: it was given up
    Duration resolve{};            ///< also in vain; zero for a step that was not begun
    Duration connect{};
    Duration handshake{};
    std::string peer = {};         ///< the address that was connected to
    std::string certificate = {};  ///< DER bytes of what was shown; empty for none
};

/// Connects to all of these addresses at once: resolves the name, connects, and, for "https", makes one
/// handshake with whoever answers. Each has `limit` for all of that. A thread whose resolver does not come
/// back by then is left to itself: nothing in the system could end it, and the process soon does.
std::vector<ProbeOutcome> ProbeAll(const std::vector<std::string>& urls, Duration limit);

}  // namespace Ombry::Doctor
