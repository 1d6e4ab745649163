#include "LibraryLogger/LogCall.h"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <type_traits>

#include "tests/Fakes/RecordingLogger.h"

namespace Ombry::Tests {
namespace {

using LibraryLogger::ILogger;
using LibraryLogger::LogCall;

/// Counts how often it is streamed.
struct Counted {
    mutable int streamed = 0;
};

std::ostream& operator<<(std::ostream& stream, const Counted& counted) {
    ++counted.streamed;
    return stream << "counted";
}

/// Takes its owner's pointer away while it is asked for the level.
class SelfReleasingLogger : public ILogger {
public:
    SelfReleasingLogger(std::shared_ptr<ILogger>& owner, bool& destroyed, bool& destroyedWhileLogging)
        : owner(owner), destroyed(destroyed), destroyedWhileLogging(destroyedWhileLogging) {}
    ~SelfReleasingLogger() override { destroyed = true; }

    bool IsEnabled(int) override {
        owner.reset();
        return true;
    }
    void Log(const char*, int, const char*, int, const std::string&) override {
        destroyedWhileLogging = destroyed;
    }

private:
    std::shared_ptr<ILogger>& owner;
    bool& destroyed;
    bool& destroyedWhileLogging;
};

class OneLevelLogger : public ILogger {
public:
    explicit OneLevelLogger(int enabled) : enabled(enabled) {}
    bool IsEnabled(int level) override {
        asked.push_back(level);
        return level == enabled;
    }
    void Log(const char*, int, const char*, int level, const std::string&) override {
        logged.push_back(level);
    }

    const int enabled;
    std::vector<int> asked;
    std::vector<int> logged;
};

class ThrowingLogger : public ILogger {
public:
    bool IsEnabled(int) override { return true; }
    void Log(const char*, int, const char*, int, const std::string&) override {
        throw std::logic_error("no disk");
    }
};

TEST(LoggerInterfaceTest, IsDestroyedThroughItsBase) {
    EXPECT_TRUE(std::has_virtual_destructor_v<ILogger>);
}

TEST(LogCallTest, EmptyLoggerSkipsEverything) {
    const Counted counted;

    LogCall(nullptr, "file.cpp", 7, "A::B", 4, "text ", counted);

    EXPECT_EQ(counted.streamed, 0);
}

TEST(LogCallTest, LevelThatIsOffIsAskedOnceAndNeverLoggedNorAssembled) {
    const auto logger = std::make_shared<RecordingLogger>(5);
    const Counted counted;

    LogCall(logger, "file.cpp", 7, "A::B", 4, "text ", counted);

    EXPECT_EQ(logger->EnabledCalls(), 1);
    EXPECT_TRUE(logger->Entries().empty());
    EXPECT_EQ(counted.streamed, 0);
}

TEST(LogCallTest, AsksForAndLogsExactlyTheLevelOfTheCall) {
    const auto logger = std::make_shared<OneLevelLogger>(3);

    for (int level = 0; level <= 4; ++level)
        LogCall(logger, "file.cpp", 7, "A::B", level, "text");

    EXPECT_EQ(logger->asked, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(logger->logged, (std::vector<int>{3}));
}

TEST(LogCallTest, StreamsLiteralsAndValuesInOrderIntoOneMessage) {
    const auto logger = std::make_shared<RecordingLogger>();

    LogCall(logger, "dir/file.cpp", 42, "Ombry::Some::Function", 3, "Getting token for ",
            std::string("v1-auth"), ", attempt ", 2, " of ", 4294967295u, 'x', true);

    ASSERT_EQ(logger->Entries().size(), 1u);
    const RecordingLogger::Entry entry = logger->Entries().front();
    EXPECT_EQ(entry.message, "Getting token for v1-auth, attempt 2 of 4294967295x1");
    EXPECT_EQ(entry.file, "dir/file.cpp");
    EXPECT_EQ(entry.line, 42);
    EXPECT_EQ(entry.function, "Ombry::Some::Function");
    EXPECT_EQ(entry.level, 3);
}

TEST(LogCallTest, KeepsBytesBehindANul) {
    const auto logger = std::make_shared<RecordingLogger>();
    const std::string text("a\0b", 3);

    LogCall(logger, "file.cpp", 1, "A::B", 0, text, "c");

    EXPECT_EQ(logger->Messages(), (std::vector<std::string>{std::string("a\0bc", 4)}));
}

TEST(LogCallTest, LoggerLivesThroughTheCallThoughItsOwnerLetsGo) {
    bool destroyed = false;
    bool destroyedWhileLogging = true;
    std::shared_ptr<ILogger> logger;
    logger = std::make_shared<SelfReleasingLogger>(logger, destroyed, destroyedWhileLogging);

    LogCall(logger, "file.cpp", 1, "A::B", 0, "text");

    EXPECT_FALSE(destroyedWhileLogging);
    EXPECT_TRUE(destroyed);
}

TEST(LogCallTest, ExceptionOfALoggerPassesIntoTheCaller) {
    const auto logger = std::make_shared<ThrowingLogger>();

    EXPECT_THROW(LogCall(logger, "file.cpp", 1, "A::B", 0, "text"), std::logic_error);
}

}  // namespace
}  // namespace Ombry::Tests
