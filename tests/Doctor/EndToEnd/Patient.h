#pragma once

#include "tests/Doctor/DocumentSchema.h"
#include "tests/EndToEnd/Sandbox.h"

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

/// `runner`: another program, below which the doctor looks.
inline Verdict Examine(const std::string& folder, const Words& options = {}, Words runner = {}) {
    runner.insert(runner.end(), {OMBRY_DOCTOR_HERE, "--json"});
    runner.insert(runner.end(), options.begin(), options.end());
    const ProcessOutcome outcome = RunProcess(runner, {.folder = folder});
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(SchemaViolation(outcome.out), "");
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

/// A folder with the tool and the doctor, by the names that the remedies call them by. One for all threads
/// that type remedies.
struct ProgramsByTheirNames {
    const TemporaryDirectory folder;

    ProgramsByTheirNames() {
        std::filesystem::create_symlink(OMBRY_TOOL_HERE, folder / "Ombry.SecClientConfig");
        std::filesystem::create_symlink(OMBRY_DOCTOR_HERE, folder / "ombry-doctor");
    }
};

/// Stand in for two programs that would change more than the machine of a test: who types has other rights
/// already, and where the clock is right again all that was written is of the past.
inline constexpr const char* StandIns =
    "sudo() { \"$@\"; }\n"
    "timedatectl() { [ \"$*\" = 'set-ntp true' ] && find . -exec touch -h -d \"@$(date +%s)\" {} +; }\n";

/// Types each remedy as it is printed, from the first to the last, with the words in capitals filled in. Each
/// must end well.
inline void TypeRemedies(const std::string& folder, const Verdict& verdict, const std::string& url) {
    static const ProgramsByTheirNames programs;
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
        const ProcessOutcome outcome =
            RunProcess({"bash", "-c", StandIns + ("PATH=" + programs.folder.Path()) + ":$PATH; " + remedy},
                       {.folder = folder});
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
