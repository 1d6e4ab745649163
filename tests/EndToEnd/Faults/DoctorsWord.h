#pragma once

#include "tests/Doctor/EndToEnd/Patient.h"
#include "tests/EndToEnd/Faults/Strace.h"

#include <mutex>
#include <set>
#include <string>

namespace Ombry::Tests {

/// Holds what the doctor says of what a fault has left against the command behind it. Hundreds of runs leave
/// the same few states, so each is examined once: by the names, kinds, modes and sizes of its files.
class DoctorsWord {
public:
    /// Of a machine on which the test lets the next command do its work: nothing may be called broken.
    static void ExpectNothingBroken(const Machine& machine) {
        if (!IsNew(machine, "")) return;
        const Verdict verdict = Examine(machine.Folder().Path());
        EXPECT_LT(verdict.exitCode, 2) << verdict.Text();
    }

    /// Of any machine: `next`, on a copy, must fail where something is called broken, and work elsewhere.
    static void ExpectTruth(const Machine& machine, const Words& next) {
        if (!IsNew(machine, next[0])) return;
        const Verdict verdict = Examine(machine.Folder().Path());
        EXPECT_NE(verdict.exitCode, 3) << verdict.Text();
        // One of two services whose key is trusted and whose address is known would be tried for minutes.
        if (verdict.Says("bootstrap.whole", "warning")) return;
        const ProcessOutcome outcome =
            CopiedMachine(machine.Folder().Path()).RunBelow({"timeout", "60"}, next);
        EXPECT_EQ(outcome.exitCode == 0, !verdict.IsBroken()) << outcome.error << verdict.Text();
    }

private:
    /// Whether no state like that was examined in this way. The doctor is a program for Linux.
    static bool IsNew(const Machine& machine, const std::string& way) {
        if (ToolUnderTest::IsForWindows()) return false;
        std::string outline = way;
        for (const auto& [path, content] : machine.Files()) {
            if (!path.starts_with("Quennet")) continue;
            const std::string mode = content.substr(0, 4);
            const bool isTemporary = IsTemporary("/" + path);
            outline += "\n" + (isTemporary ? path.substr(0, path.rfind('/')) + "/.tmp" : path) + " " + mode +
                       " " + std::to_string(content.size());
        }
        static std::mutex mutex;
        static std::set<std::string>& seen = *new std::set<std::string>;
        const std::lock_guard guard(mutex);
        return seen.insert(outline).second;
    }
};

}  // namespace Ombry::Tests
