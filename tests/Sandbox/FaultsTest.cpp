#include "Sandbox/Faults.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using Sandbox::Fault;
using Sandbox::Faults;

std::string TextOf(const std::optional<Fault>& fault) {
    if (!fault) return "none";
    static const char* const names[] = {"status", "delay", "reset", "cut", "silence"};
    return names[static_cast<int>(fault->kind)] + std::string("=") + std::to_string(fault->argument);
}

std::string RefusalOfFault(const std::string& text) {
    Faults faults;
    try {
        faults.Add(text);
        return {};
    } catch (const std::invalid_argument& failure) {
        EXPECT_EQ(TextOf(faults.Take("/a")), "none") << text;
        return failure.what();
    }
}

TEST(SandboxFaultsTest, NothingHappensUnasked) {
    Faults faults;
    EXPECT_EQ(TextOf(faults.Take("/a")), "none");
}

TEST(SandboxFaultsTest, EveryKindIsTakenUpToItsEnds) {
    const std::vector<std::pair<std::string, std::string>> kinds = {
        {"reset", "reset=0"},
        {"cut", "cut=0"},
        {"silence", "silence=0"},
        {"status=200", "status=200"},
        {"status=599", "status=599"},
        {"delay=0", "delay=0"},
        {"delay=600000", "delay=600000"},
    };
    for (const auto& [kind, taken] : kinds) {
        Faults faults;
        faults.Add("/a:1:" + kind);
        EXPECT_EQ(TextOf(faults.Take("/a")), taken);
        EXPECT_EQ(TextOf(faults.Take("/a")), "none");
    }
}

TEST(SandboxFaultsTest, CountIsWhatIsTaken) {
    Faults faults;
    faults.Add("/a:3:cut");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(TextOf(faults.Take("/a")), "cut=0");
    EXPECT_EQ(TextOf(faults.Take("/a")), "none");
}

TEST(SandboxFaultsTest, LargestCountIsTaken) {
    EXPECT_EQ(RefusalOfFault("/a:1000000:cut"), "");
}

TEST(SandboxFaultsTest, OnlyWhatIsBelowThePathIsHit) {
    Faults faults;
    faults.Add("/a/b:9:cut");
    for (const char* path : {"/a", "/a/", "/b/a/b", "/A/b", ""})
        EXPECT_EQ(TextOf(faults.Take(path)), "none") << path;
    for (const char* path : {"/a/b", "/a/b/c"})
        EXPECT_EQ(TextOf(faults.Take(path)), "cut=0") << path;
}

TEST(SandboxFaultsTest, OldestThatFitsComesFirst) {
    Faults faults;
    faults.Add("/a/b:1:status=501");
    faults.Add("/a:1:status=502");
    faults.Add("/a:1:status=503");
    EXPECT_EQ(TextOf(faults.Take("/a/c")), "status=502");
    EXPECT_EQ(TextOf(faults.Take("/a/b")), "status=501");
    EXPECT_EQ(TextOf(faults.Take("/a/b")), "status=503");
    EXPECT_EQ(TextOf(faults.Take("/a/b")), "none");
}

TEST(SandboxFaultsTest, PathMayBeEmptyOrHoldColons) {
    Faults faults;
    faults.Add("/x:y:1:cut");
    EXPECT_EQ(TextOf(faults.Take("/x")), "none");
    EXPECT_EQ(TextOf(faults.Take("/x:y/z")), "cut=0");
    faults.Add(":1:cut");
    EXPECT_EQ(TextOf(faults.Take("/anything")), "cut=0");
}

TEST(SandboxFaultsTest, TextThatIsNoFaultIsNamed) {
    for (const std::string text : {"", "x", ":", "1:cut", "cut"})
        EXPECT_EQ(RefusalOfFault(text), "A fault is PATH:COUNT:KIND, not '" + text + "'");
    for (const std::string count : {"0", "-1", "1000001", "", "x", "1x", " 1", "99999999999999999999"})
        EXPECT_EQ(RefusalOfFault("/a:" + count + ":cut"), "'" + count + "' is no number from 1 to 1000000");
    for (const std::string status : {"199", "600", "", "-200", "20O", "4294967496"})
        EXPECT_EQ(RefusalOfFault("/a:1:status=" + status), "'" + status + "' is no number from 200 to 599");
    for (const std::string delay : {"-1", "600001", "", "1s"})
        EXPECT_EQ(RefusalOfFault("/a:1:delay=" + delay), "'" + delay + "' is no number from 0 to 600000");
    for (const std::string kind : {"", "status", "delay", "Reset", "reset ", "cut=1", "silence\n"}) {
        EXPECT_EQ(
            RefusalOfFault("/a:1:" + kind),
            "'" + kind + "' is no fault; known are status=CODE, delay=MILLISECONDS, reset, cut and silence");
    }
}

}  // namespace
}  // namespace Ombry::Tests
