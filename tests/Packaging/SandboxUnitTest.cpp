// The unit of the sandbox, as systemd sees it, and what it starts; its manual, and what the program takes.

#include "tests/EndToEnd/ChildProcess.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Packaging/Programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using ::testing::HasSubstr;

const std::string Unit = OMBRY_SOURCE_DIR "/packaging/ombry-sandbox.service";

TEST(SandboxUnitTest, IsExposedByTwoAtMost) {
    if (Shell("command -v systemd-analyze").exitCode != 0)
        return LeaveOut("systemd-analyze is not installed");
    // The threshold of the program is ten times the figure that it prints.
    const ShellRun judged =
        Shell("systemd-analyze security --offline=true --threshold=20 --no-pager " + Unit);
    EXPECT_EQ(judged.exitCode, 0) << judged.output;
    EXPECT_THAT(judged.output, HasSubstr("Overall exposure level for ombry-sandbox.service: "));
}

/// The words of the line that starts the service, with the program of this build and these variables.
std::vector<std::string> StartOf(const std::string& folder, const std::string& options) {
    std::string line = Shell("sed -n 's/^ExecStart=ombry-sandbox //p' " + Unit).output;
    line = std::regex_replace(line, std::regex(R"(\$\{STATE_DIRECTORY\})"), folder);
    line = std::regex_replace(line, std::regex(R"(\$OPTIONS)"), options);
    std::vector<std::string> words{OMBRY_SANDBOX_SERVICE};
    std::istringstream text(line);
    for (std::string word; text >> word;)
        words.push_back(word);
    return words;
}

int ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST(SandboxUnitTest, StartsAServiceWhosePasswordIsInItsFolderAloneAndStaysTheSame) {
    const TemporaryDirectory folder;
    std::string first;
    for (int start = 0; start < 2; ++start) {
        // Its own port may be taken on this machine; what the administrator says comes last.
        ChildProcess service(StartOf(folder.Path(), "--port 0"));
        const std::string ready = service.AwaitLine();
        const std::size_t begin = ready.find("https://");
        ASSERT_NE(begin, std::string::npos) << ready;
        const std::string base = ready.substr(begin, ready.find('"', begin) - begin);
        const std::string password = Shell("cat " + folder / "password").output;
        EXPECT_TRUE(std::regex_match(password, std::regex("[0-9a-f]{32}\n")));
        EXPECT_EQ(ModeOf(folder / "password"), 0600);
        if (start == 0) first = password;
        EXPECT_EQ(password, first);
        const auto ask = [&](const std::string& user) {
            return Shell("curl -sk -o /dev/null -w '%{http_code}' -u " + user + " " +
                         base.substr(0, base.find('/', 8)) + "/")
                .output;
        };
        EXPECT_EQ(ask("admin:" + password.substr(0, 32)), "200");
        EXPECT_EQ(ask("admin:secret"), "401");
        // Nobody learns it from the list of processes.
        EXPECT_EQ(Shell("tr '\\0' ' ' < /proc/" + std::to_string(service.Id()) + "/cmdline")
                      .output.find(password.substr(0, 32)),
                  std::string::npos);
        service.Signal(SIGTERM);
        EXPECT_EQ(service.Wait().exitCode, 0);
    }
}

TEST(SandboxUnitTest, AsksTheSystemForNothingThatItsFilterRefuses) {
    if (Shell("command -v systemd-analyze").exitCode != 0)
        return LeaveOut("systemd-analyze is not installed");
    const TemporaryDirectory folder;
    std::vector<std::string> words{"strace", "-f", "-qq", "-e", "signal=none", "-o", folder / "trace"};
    const std::vector<std::string> start = StartOf(folder.Path(), "--port 0 --fault :1:reset");
    words.insert(words.end(), start.begin(), start.end());
    {
        ChildProcess service(words);
        const std::string ready = service.AwaitLine();
        const std::size_t begin = ready.find("https://");
        const std::string base = ready.substr(begin, ready.find('"', begin) - begin);
        // A connection that is reset, an answer from the database, and the page.
        for (int i = 0; i < 2; ++i)
            Shell("curl -sk " + base + "/services/services/nonsecure/name/ssds");
        Shell("curl -sk -u admin:$(cat " + folder / "password" + ") " + base.substr(0, base.find('/', 8)) +
              "/");
        Shell("pkill -TERM -P " + std::to_string(service.Id()));
        EXPECT_EQ(service.Wait().exitCode, 0);
    }
    const auto callsOf = [](const std::string& command) {
        const std::vector<std::string> lines = Shell(command).Lines();
        return std::set<std::string>(lines.begin(), lines.end());
    };
    // A set may name others, down to calls.
    const std::string expand =
        "expand() { systemd-analyze syscall-filter --no-pager $1 </dev/null | sed -n 's/^    "
        "\\([@a-z0-9_-]*\\)$/\\1/p' |"
        " while read -r name; do case $name in @*) expand $name ;; *) echo $name ;; esac; done; }; expand ";
    const std::set<std::string> granted = callsOf(expand + "@system-service");
    const std::set<std::string> refused = callsOf(expand + "@privileged");
    std::set<std::string> asked =
        callsOf("sed -nE 's/^[0-9]+ +([a-z0-9_]+)\\(.*/\\1/p' " + folder / "trace" + " | sort -u");
    EXPECT_TRUE(asked.contains("accept") || asked.contains("accept4"));
    EXPECT_TRUE(granted.contains("futex") && refused.contains("chown"));
    asked.erase("fchown");  // which the database does for root alone
    for (const std::string& call : asked) {
        // strace itself starts the program by the first; systemd does so before it sets the filter.
        EXPECT_TRUE(call == "execve" || (granted.contains(call) && !refused.contains(call))) << call;
    }
}

TEST(SandboxManualTest, NamesEachOptionAndNoOther) {
    const auto optionsIn = [](const std::string& text) {
        std::set<std::string> options;
        const std::regex pattern("--[a-z][-a-z]*");
        for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at)
            options.insert(at->str());
        return options;
    };
    std::string manual =
        Shell("sed '/^.SH THE PAGE/,$d' " OMBRY_SOURCE_DIR "/packaging/ombry-sandbox.1").output;
    manual = std::regex_replace(manual, std::regex(R"(\\-)"), "-");
    EXPECT_EQ(optionsIn(manual), optionsIn(Shell(OMBRY_SANDBOX_SERVICE " --help").output));
    EXPECT_EQ(Shell("groff -man -Tutf8 -ww -z " OMBRY_SOURCE_DIR "/packaging/ombry-sandbox.1").output, "");
}

}  // namespace
}  // namespace Ombry::Tests
