#pragma once

#include "tests/EndToEnd/Sandbox.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// What the doctor said of one check.
struct Diagnosis {
    std::string check;
    std::string severity;
    std::string message;
    std::string remedy;
};

/// All that it said.
struct Verdict {
    int exitCode = 3;
    std::vector<Diagnosis> findings = {};

    bool IsBroken() const {
        return std::any_of(findings.begin(), findings.end(), [](const Diagnosis& finding) {
            return finding.severity == "error" || finding.severity == "critical";
        });
    }
    bool IsFine() const { return exitCode == 0; }
    bool Says(const std::string& check, const std::string& severity) const {
        return std::any_of(findings.begin(), findings.end(), [&](const Diagnosis& finding) {
            return finding.check == check && finding.severity == severity;
        });
    }
    /// What is not well, for the report of a test.
    std::string Text() const {
        std::string text;
        for (const Diagnosis& finding : findings) {
            if (finding.severity == "success") continue;
            text += finding.severity + " " + finding.check + ": " + finding.message + "\n  " +
                    finding.remedy + "\n";
        }
        return text.empty() ? "all is well" : text;
    }
};

inline Verdict Examine(const std::string& folder, Words options = {}) {
    options.insert(options.begin(), {OMBRY_DOCTOR_HERE, "--json"});
    const ProcessOutcome outcome = RunProcess(options, {.folder = folder});
    EXPECT_EQ(outcome.error, "");
    Verdict verdict{outcome.exitCode};
    rapidjson::Document document;
    if (document.Parse(outcome.out.c_str()).HasParseError()) {
        ADD_FAILURE() << "no JSON: " << outcome.out;
        return verdict;
    }
    for (const auto& finding : document["findings"].GetArray()) {
        verdict.findings.push_back(
            {std::string(finding["source"].GetString()) + "." + finding["name"].GetString(),
             finding["severity"].GetString(), finding["message"].GetString(),
             finding["remedy"].IsString() ? finding["remedy"].GetString() : ""});
    }
    return verdict;
}

/// A folder with the tool, by the name that the remedies call it by. One for all threads that type remedies.
struct ToolByItsName {
    const TemporaryDirectory folder;

    ToolByItsName() { std::filesystem::create_symlink(OMBRY_TOOL_HERE, folder / "Ombry.SecClientConfig"); }
};

/// Types each remedy as it is printed, from the first to the last, with the words in capitals filled in. Each
/// must end well.
inline void TypeRemedies(const std::string& folder, const Verdict& verdict, const std::string& url) {
    static const ToolByItsName programs;
    const std::vector<std::pair<std::string, std::string>> words{
        {"-u USER -p PASSWORD", "-u admin -p secret"},
        {"-dn DATACENTER", "-dn Sandbox"},
        {"-r URL", "-r " + url},
        {"-url URL", "-url https://h:1/x"},
        {"-namespace NAMESPACE", "-namespace ns"},
        {"-hostname HOST", "-hostname h"}};
    std::set<std::string> typed;
    for (const Diagnosis& finding : verdict.findings) {
        std::string remedy = finding.remedy;
        if (remedy.empty() || !typed.insert(remedy).second) continue;
        for (const auto& [word, filled] : words) {
            for (std::size_t at = 0; (at = remedy.find(word, at)) != std::string::npos; at += filled.size())
                remedy.replace(at, word.size(), filled);
        }
        const ProcessOutcome outcome = RunProcess(
            {"bash", "-c", "PATH=" + programs.folder.Path() + ":$PATH; " + remedy}, {.folder = folder});
        EXPECT_EQ(outcome.exitCode, 0) << remedy << "\n" << outcome.error;
    }
}

/// A copy of a machine, to be used up by one command.
class CopiedMachine {
public:
    explicit CopiedMachine(const std::string& folder) {
        // With the times of its files, of which the doctor makes something.
        EXPECT_EQ(RunProcess({"cp", "-a", folder + "/.", copy.Path()}).exitCode, 0);
    }
    /// Nothing if it is not there, or something stands in the way.
    void Remove(const std::string& path) const {
        std::error_code ignored;
        std::filesystem::remove_all(copy / path, ignored);
    }
    ProcessOutcome Run(const Words& words) const { return RunBelow({}, words); }
    /// Runs the tool below another program, whose words come first.
    ProcessOutcome RunBelow(Words runner, const Words& words) const {
        runner.push_back(OMBRY_TOOL_HERE);
        runner.insert(runner.end(), words.begin(), words.end());
        return RunProcess(runner, {.folder = copy.Path()});
    }

private:
    const TemporaryDirectory copy;
};

}  // namespace Ombry::Tests
