#pragma once

#include "Ombry.SecClientConfig/RunTool.h"
#include "tests/Fakes/CapturedOutput.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// What one run of the tool gave back.
struct ToolRun {
    int exitCode;
    std::string out;
    std::string error;
};

/// Calls `entry` as `main` is called, with `words` behind the name of the program.
inline ToolRun CallWith(const std::function<int(int, char**)>& entry, std::vector<std::string> words) {
    words.insert(words.begin(), "Ombry.SecClientConfig");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    const CapturedOutput captured;
    const int exitCode = entry(static_cast<int>(words.size()), argv.data());
    return {exitCode, captured.Out(), captured.Error()};
}

inline ToolRun Tool(const std::vector<std::string>& words) {
    return CallWith(SecClientConfig::RunTool, words);
}

inline void ExpectGeneralHelpAsError(const std::vector<std::string>& words) {
    const ToolRun run = Tool(words);
    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.error, GeneralHelp);
    EXPECT_EQ(run.out, "");
}

}  // namespace Ombry::Tests
