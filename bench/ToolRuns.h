#pragma once

#include "bench/Measurement.h"

namespace Ombry::Bench {

using Command = std::vector<std::string>;

/// Seconds from the start of a program in a folder to its end; `std::runtime_error` if it ends otherwise than
/// expected.
double TimeRun(const Command& command, int expectedCode, const std::string& folder);

/// How long one thing took, and the other beside it, round by round.
class Rounds {
public:
    void Add(double ours, double theirs);
    /// The median of the ratios, beside both medians.
    void AtMost(Report& report, const std::string& name, double target) const;

private:
    std::vector<double> ourTimes, theirTimes, ratios;
};

}  // namespace Ombry::Bench
