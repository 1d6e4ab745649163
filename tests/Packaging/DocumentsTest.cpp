// Keeps the completion and the manual page in step with what the tool takes.

#include "tests/Packaging/Programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::vector<std::string> Commands{
    "configure-bootstrap-url", "enroll-client",        "enroll-service",  "get-datacenters", "help",
    "unenroll-client",         "unenroll-client-self", "unenroll-service"};

/// What the completion offers for the last of the words behind the tool's name, as the shell splits them.
std::vector<std::string> Completions(const std::string& words) {
    return Shell("source " OMBRY_SOURCE_DIR
                 "/packaging/Ombry.SecClientConfig.bash-completion; COMP_WORDS=(Ombry.SecClientConfig " +
                 words +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _ombry_sec_client_config; "
                 "[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\"")
        .Lines();
}

/// Whether a command knows an option. The pair behind it is never known, so that no command gets to work.
bool Takes(const std::string& command, const std::string& option) {
    const ShellRun run = Shell(OMBRY_TOOL " " + command + " " + option + " x -none x");
    EXPECT_THAT(run.output, HasSubstr("ERROR: Unrecognized option -none\n"));
    return run.output.find("ERROR: Unrecognized option " + option + "\n") == std::string::npos;
}

/// The manual without the marks of its language.
std::string Manual() {
    std::ifstream file(OMBRY_SOURCE_DIR "/packaging/Ombry.SecClientConfig.1");
    std::string text{std::istreambuf_iterator<char>(file), {}};
    std::erase(text, '\\');
    return text;
}

TEST(DocumentedCommandsTest, AreThoseThatTheToolLists) {
    std::string listed = "\n";
    for (const std::string& command : Commands)
        listed += "    " + command + "\n";
    EXPECT_THAT(Shell(OMBRY_TOOL " help help").output, HasSubstr("one of:" + listed + "\n"));
}

TEST(CompletionTest, OffersTheCommands_AndAgainBehindHelp) {
    EXPECT_EQ(Completions("''"), Commands);
    EXPECT_EQ(Completions("help ''"), Commands);
    EXPECT_THAT(Completions("en"), ElementsAre("enroll-client", "enroll-service"));
    EXPECT_THAT(Completions("help enroll-client ''"), IsEmpty());
}

TEST(CompletionTest, OffersExactlyTheOptionsThatEachCommandTakes) {
    std::map<std::string, std::set<std::string>> offered;
    std::set<std::string> all;
    for (const std::string& command : Commands) {
        if (command == "help") continue;
        for (const std::string& option : Completions(command + " ''")) {
            offered[command].insert(option);
            all.insert(option);
        }
    }
    EXPECT_EQ(all.size(), 19u);
    for (const auto& [command, options] : offered) {
        for (const std::string& option : all)
            EXPECT_EQ(Takes(command, option), options.contains(option)) << command << " " << option;
    }
}

TEST(CompletionTest, OffersNothingForAValue_AndNoOptionTwice) {
    EXPECT_THAT(Completions("get-datacenters -u ''"), IsEmpty());
    EXPECT_THAT(Completions("get-datacenters -u -"), IsEmpty());
    EXPECT_THAT(Completions("get-datacenters -u admin ''"), ElementsAre("-p", "-n", "-t", "-r"));
    EXPECT_THAT(Completions("unenroll-client-self -n printer ''"), IsEmpty());
    EXPECT_THAT(Completions("nosuch ''"), IsEmpty());
}

TEST(CompletionTest, UrlThatTheShellSplitsDoesNotConfuseIt) {
    EXPECT_THAT(Completions("get-datacenters -r https : ''"), ElementsAre("-u", "-p", "-n", "-t"));
    EXPECT_THAT(Completions("get-datacenters -r https : //server1 ''"), ElementsAre("-u", "-p", "-n", "-t"));
}

TEST(ManualTest, NamesEveryCommandAndEveryOption) {
    const std::string manual = Manual();
    for (const std::string& command : Commands) {
        EXPECT_THAT(manual, HasSubstr(command));
        if (command == "help") continue;
        for (const std::string& option : Completions(command + " ''"))
            EXPECT_THAT(manual, HasSubstr(option + " ")) << command;
    }
}

TEST(ManualTest, FormatsWithoutComplaint) {
    const ShellRun formatted =
        Shell("groff -man -Tutf8 -ww -z " OMBRY_SOURCE_DIR "/packaging/Ombry.SecClientConfig.1");
    EXPECT_EQ(formatted.exitCode, 0);
    EXPECT_EQ(formatted.output, "");
}

}  // namespace
}  // namespace Ombry::Tests
