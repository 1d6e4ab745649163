#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

#include <functional>
#include <string>
#include <vector>

namespace Ombry::Doctor {

/// What an examination is told.
struct Wishes {
    std::vector<std::string> only = {};  ///< checks, or sources of checks; none for all
    bool connects = false;               ///< whether the network is asked, too
    long long warnDays = 30;             ///< before a certificate ends
};

/// One check. It says at least one thing.
struct Check {
    std::string source;
    std::string name;
    std::string description;
    bool connects;  ///< asks the network, and so is made only on demand
    std::function<Findings(const Machine&, const Wishes&)> run;

    std::string FullName() const { return source + "." + name; }
};

/// All checks, in the order in which what they advise is to be typed.
const std::vector<Check>& AllChecks();

/// Whether there is such a check, or such a source of checks.
bool IsCheck(const std::string& name);

/// Makes the checks that are wished for.
Findings Examine(const Machine& machine, const Wishes& wishes);

/// The codes of monitoring plug-ins, which are those of the program.
enum class Status { Fine = 0, Warning = 1, Critical = 2, Unknown = 3 };

/// What findings come to: what the user may not see leaves it open, unless something is broken for sure.
Status StatusOf(const Findings& findings);

}  // namespace Ombry::Doctor
