#include "Ombry.SecClientConfig/CommandTable.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <streambuf>

namespace Ombry::Tests {
namespace {

using namespace SecClientConfig;

/// A command under the word "scripted" that does what it is given.
class ScriptedCommand : public Command {
public:
    explicit ScriptedCommand(std::function<int(int, char**)> execute) : execute(std::move(execute)) {}
    std::string& Name(std::string& out) override { return out = "scripted"; }
    int Usage(bool) override { return 0; }
    int Execute(int argc, char** argv) override { return execute(argc, argv); }

private:
    const std::function<int(int, char**)> execute;
};

class RunToolTest : public testing::Test {
protected:
    ~RunToolTest() override { Commands().clear(); }

    static ToolRun Scripted(std::function<int(int, char**)> execute, std::vector<std::string> options = {}) {
        RegisterCommand(std::make_shared<ScriptedCommand>(std::move(execute)));
        options.insert(options.begin(), "scripted");
        return CallWith(Dispatch, options);
    }
};

TEST_F(RunToolTest, NoWordPrintsTheGeneralHelpAsAnError) {
    ExpectGeneralHelpAsError({});
}

TEST_F(RunToolTest, NotEvenAProgramNamePrintsTheGeneralHelpAsAnError) {
    char* none = nullptr;
    const CapturedOutput captured;

    EXPECT_EQ(RunTool(0, &none), -1);

    EXPECT_EQ(captured.Error(), GeneralHelp);
}

TEST_F(RunToolTest, UnknownWordPrintsTheGeneralHelpAsAnErrorThatNamesNoWord) {
    ExpectGeneralHelpAsError({"nosuch"});
    ExpectGeneralHelpAsError({""});
    ExpectGeneralHelpAsError({"-h"});
    ExpectGeneralHelpAsError({"\xff\x01\x1b"});
    ExpectGeneralHelpAsError({std::string(1 << 20, 'h')});
    ExpectGeneralHelpAsError({"nosuch", "-u", "a", "help"});
}

TEST_F(RunToolTest, WordsAreCaseSensitiveAndWhole) {
    ExpectGeneralHelpAsError({"HELP", "help"});
    ExpectGeneralHelpAsError({"Get-Datacenters"});
    ExpectGeneralHelpAsError({"enroll"});
    ExpectGeneralHelpAsError({"unenroll-client-"});
    ExpectGeneralHelpAsError({"help "});
}

TEST_F(RunToolTest, CommandGetsTheArgumentsOfTheProcessAndGivesTheExitCode) {
    std::vector<std::string> seen;
    const ToolRun run = Scripted(
        [&](int argc, char** argv) {
            seen.assign(argv, argv + argc);
            return 7;
        },
        {"-u", "a"});

    EXPECT_EQ(run.exitCode, 7);
    EXPECT_EQ(seen, (std::vector<std::string>{"Ombry.SecClientConfig", "scripted", "-u", "a"}));
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.error, "");
}

TEST_F(RunToolTest, LineOfAnExceptionIsWrittenInOnePiece) {
    struct Pieces : std::streambuf {
        std::streamsize xsputn(const char* text, std::streamsize length) override {
            texts.emplace_back(text, static_cast<std::size_t>(length));
            return length;
        }
        std::vector<std::string> texts;
    } pieces;
    const CapturedOutput captured;
    std::cerr.rdbuf(&pieces);

    RegisterCommand(
        std::make_shared<ScriptedCommand>([](int, char**) -> int { throw std::runtime_error("why"); }));
    std::string word = "scripted";
    std::vector<char*> argv = {word.data(), word.data(), nullptr};
    Dispatch(2, argv.data());

    EXPECT_EQ(pieces.texts, (std::vector<std::string>{"Caught exception: why\n"}));
}

TEST_F(RunToolTest, ExceptionIsOneLineOnTheErrorStream) {
    const ToolRun run = Scripted([](int, char**) -> int { throw std::runtime_error("no such server"); });

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.error, "Caught exception: no such server\n");
    EXPECT_EQ(run.out, "");
}

TEST_F(RunToolTest, EveryStandardExceptionIsStopped) {
    class Own : public std::exception {
    public:
        const char* what() const noexcept override { return "own"; }
    };

    EXPECT_EQ(Scripted([](int, char**) -> int { throw Own(); }).error, "Caught exception: own\n");
    EXPECT_EQ(Scripted([](int, char**) -> int { throw std::logic_error(""); }).error, "Caught exception: \n");
}

TEST_F(RunToolTest, ExceptionThatIsNotAStandardOneIsNotStopped) {
    EXPECT_THROW(Scripted([](int, char**) -> int { throw 42; }), int);
}

TEST_F(RunToolTest, OutputBeforeAnExceptionStays) {
    const ToolRun run = Scripted([](int, char**) -> int {
        std::cout << "half";
        throw std::runtime_error("gone");
    });

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.out, "half");
    EXPECT_EQ(run.error, "Caught exception: gone\n");
}

TEST_F(RunToolTest, EveryRunStartsWithTheEightCommands) {
    RegisterCommand(std::make_shared<ScriptedCommand>([](int, char**) { return 0; }));
    const auto before = Commands();

    const ToolRun run = Tool({"scripted"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(Commands().size(), before.size() + 8);
}

/// Takes `room` bytes, then fails; fails to flush if it did.
class FullDisk : public std::streambuf {
public:
    explicit FullDisk(std::size_t room) : room(room) {}

protected:
    int_type overflow(int_type byte) override { return room-- > 0 ? byte : Fail(); }
    int sync() override { return failed ? -1 : 0; }

private:
    int_type Fail() {
        room = 0;
        failed = true;
        return traits_type::eof();
    }

    std::size_t room;
    bool failed = false;
};

/// Fails only when it is flushed, as a buffered file does.
class FullDiskBehindABuffer : public std::streambuf {
protected:
    int_type overflow(int_type byte) override { return byte; }
    int sync() override { return -1; }
};

/// Runs `help enroll-client` with its output going to `out`.
ToolRun HelpOnto(std::streambuf& out) {
    return CallWith(
        [&](int argc, char** argv) {
            std::streambuf* const previous = std::cout.rdbuf(&out);
            const int exitCode = RunTool(argc, argv);
            std::cout.rdbuf(previous);
            return exitCode;
        },
        {"help", "enroll-client"});
}

TEST_F(RunToolTest, OutputThatCannotBeWrittenIsAFailure) {
    const std::size_t length = Usages.at("enroll-client").size();
    for (const std::size_t room : {std::size_t{0}, std::size_t{1}, length - 1}) {
        FullDisk disk(room);
        const ToolRun run = HelpOnto(disk);
        EXPECT_EQ(run.exitCode, -1) << room;
        EXPECT_EQ(run.error, "Caught exception: The standard output could not be written.\n") << room;
    }
    FullDisk disk(length);
    EXPECT_EQ(HelpOnto(disk).exitCode, 0);
}

TEST_F(RunToolTest, OutputThatIsLostWhenItIsFlushedIsAFailure) {
    FullDiskBehindABuffer disk;
    const ToolRun run = HelpOnto(disk);

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.error, "Caught exception: The standard output could not be written.\n");
}

TEST_F(RunToolTest, FailureOfTheCommandIsNotHiddenByAFailureOfTheOutput) {
    FullDiskBehindABuffer disk;
    const ToolRun run = Scripted([&](int, char**) {
        std::cout.rdbuf(&disk);
        return -1;
    });

    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(run.error, "");
}

}  // namespace
}  // namespace Ombry::Tests
