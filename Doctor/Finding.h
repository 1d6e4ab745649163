#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

/// A program that tells what state a machine is in, and what to type where that is not well.
namespace Ombry::Doctor {

/// What a finding means for the commands of the tool.
enum class Severity {
    Success,   ///< as it should be
    Warning,   ///< they work; somebody should look at it all the same
    Error,     ///< those that need this client, service or cache fail
    Critical,  ///< all of them fail that want a configured machine
};

using Value = std::variant<std::string, long long, bool>;

/// One thing that a check has found. Neither a secret nor a token, nor a part of one, is ever in it.
struct Finding {
    std::string source = {};  ///< what the check looks at, filled in by whoever runs it; so is `name`
    std::string name = {};
    Severity severity = Severity::Success;
    std::string message = {};
    std::vector<std::pair<std::string, Value>> pairs = {};
    std::string remedy = {};   ///< a command to type; words in capitals are to be filled in. Empty for none
    bool isUndecided = false;  ///< it cannot be looked at, or not by this user: it may be well
};

using Findings = std::vector<Finding>;

}  // namespace Ombry::Doctor
