// Keeps the completion, the manual page and the document of the doctor in step with what it takes and checks.

#include "tests/Packaging/Programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::vector<std::string> DoctorCompletions(const std::string& words) {
    return Shell("source " OMBRY_SOURCE_DIR
                 "/packaging/ombry-doctor.bash-completion; COMP_WORDS=(" OMBRY_DOCTOR " " +
                 words +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _ombry_doctor; "
                 "[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\"")
        .Lines();
}

/// The options in its help, in the order of the alphabet.
std::set<std::string> DoctorOptions() {
    std::set<std::string> options;
    for (const std::string& line : Shell(OMBRY_DOCTOR " --help").Lines()) {
        if (line.starts_with("  --")) options.insert(line.substr(2, line.find(' ', 2) - 2));
    }
    return options;
}

std::vector<std::string> DoctorChecks() {
    std::vector<std::string> checks;
    for (const std::string& line : Shell(OMBRY_DOCTOR " --list-checks").Lines())
        checks.push_back(line.substr(0, line.find(' ')));
    return checks;
}

std::string TextOfFile(const std::string& path) {
    std::ifstream file(OMBRY_SOURCE_DIR "/" + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(DoctorCompletionTest, OffersTheOptionsAndTheChecks) {
    const std::vector<std::string> offered = DoctorCompletions("''");
    EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), DoctorOptions());
    EXPECT_THAT(DoctorCompletions("--only trust"), ElementsAre("trust", "trust.certificate"));
    for (const std::string& check : DoctorChecks())
        EXPECT_THAT(DoctorCompletions("--only ''"), Contains(check));
    EXPECT_THAT(DoctorCompletions("--warn-days ''"), IsEmpty());
}

TEST(DoctorManualTest, NamesEachOptionAndFormatsWithoutComplaint) {
    std::string manual = TextOfFile("packaging/ombry-doctor.1");
    std::erase(manual, '\\');
    for (const std::string& option : DoctorOptions())
        EXPECT_THAT(manual, HasSubstr(option));
    const ShellRun formatted =
        Shell("groff -man -Tutf8 -ww -z " OMBRY_SOURCE_DIR "/packaging/ombry-doctor.1");
    EXPECT_EQ(formatted.exitCode, 0);
    EXPECT_EQ(formatted.output, "");
}

TEST(DoctorDocumentTest, HasALineForEachCheckAndEachOption) {
    const std::string document = TextOfFile("docs/doctor.md");
    ASSERT_GT(DoctorChecks().size(), 10u);
    for (const std::string& check : DoctorChecks())
        EXPECT_THAT(document, HasSubstr("\n| `" + check + "` | "));
    for (const std::string& option : DoctorOptions()) {
        if (option == "--help") continue;
        EXPECT_THAT(document, HasSubstr("\n| `" + option));
    }
}

}  // namespace
}  // namespace Ombry::Tests
