// The executables themselves, as a shell sees them.

#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

namespace Ombry::Tests {
namespace {

struct ShellRun {
    int exitCode;
    std::string out;
};

/// Runs a line of shell in which $TOOL is the executable; the result is the exit code and what it printed on
/// its standard output.
ShellRun Shell(const std::string& tool, const std::string& line) {
    FILE* const pipe = popen(("TOOL='" + tool + "'; " + line).c_str(), "r");
    std::string out;
    char block[4096];
    for (std::size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;)
        out.append(block, count);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), out};
}

class MainTest : public testing::TestWithParam<const char*> {};

TEST_P(MainTest, HelpAboutACommandIsASuccessOnTheOutput) {
    const ShellRun run = Shell(GetParam(), "\"$TOOL\" help enroll-service 2>/dev/null");

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, Usages.at("enroll-service"));
}

TEST_P(MainTest, NoArgumentsAreAFailureOnTheErrorStream) {
    const ShellRun run = Shell(GetParam(), "\"$TOOL\" 2>&1 >/dev/null");

    EXPECT_EQ(run.exitCode, 255);
    EXPECT_EQ(run.out, GeneralHelp);
}

TEST_P(MainTest, FullDiskBehindTheOutputIsAFailure) {
    const ShellRun run = Shell(GetParam(), "\"$TOOL\" help help 2>&1 >/dev/full");

    EXPECT_EQ(run.exitCode, 255);
    EXPECT_EQ(run.out, "Caught exception: The standard output could not be written.\n");
}

TEST_P(MainTest, ClosedOutputIsAFailure) {
    const ShellRun run = Shell(GetParam(), "\"$TOOL\" help help 2>&1 >&-");

    EXPECT_EQ(run.exitCode, 255);
    EXPECT_EQ(run.out, "Caught exception: The standard output could not be written.\n");
}

TEST_P(MainTest, ReaderThatHasGoneIsAFailureAndNotASignal) {
    // The reader ends before the tool starts: it opens the pipe of its own end and closes it again.
    const ShellRun run = Shell(GetParam(),
                               "dir=$(mktemp -d); mkfifo $dir/pipe; (: <$dir/pipe) & "
                               "exec 3>$dir/pipe; wait; rm -r $dir; \"$TOOL\" help help >&3 2>/dev/null");

    EXPECT_EQ(run.exitCode, 255);
}

INSTANTIATE_TEST_SUITE_P(Executables, MainTest, testing::Values(OMBRY_TOOL, OMBRY_TOOL_HERE));

}  // namespace
}  // namespace Ombry::Tests
