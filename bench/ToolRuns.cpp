#include "bench/ToolRuns.h"

#include <cstdio>
#include <stdexcept>

namespace Ombry::Bench {

double TimeRun(const Command& command, int expectedCode, const std::string& folder) {
    const double start = Now();
    const int code = Run(command, -1, folder.c_str());
    const double end = Now();
    if (code != expectedCode) {
        std::string text;
        for (const std::string& word : command)
            text += word + " ";
        throw std::runtime_error(text + "ended with exit code " + std::to_string(code));
    }
    return end - start;
}

void Rounds::Add(double ours, double theirs) {
    ourTimes.push_back(ours);
    theirTimes.push_back(theirs);
    ratios.push_back(ours / theirs);
}

void Rounds::AtMost(Report& report, const std::string& name, double target) const {
    char remark[96];
    std::snprintf(remark, sizeof remark, "%.2f ms against %.2f ms", Median(ourTimes) * 1e3,
                  Median(theirTimes) * 1e3);
    report.AtMost(name, Median(ratios), target, remark);
}

}  // namespace Ombry::Bench
