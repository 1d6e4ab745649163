#include "LibraryLogger/LogCall.h"
#include "tests/Fakes/GroupingLocale.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <type_traits>

namespace Ombry::Tests {
namespace {

using LibraryLogger::ILogger;
using LibraryLogger::LogCall;
using LibraryLogger::Place;

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

/// Logs for its callers.
void Report(const std::shared_ptr<ILogger>& logger, const Place& place, const char* what) {
    LogCall(logger, place, 4, "reported: ", what);
}

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

    LogCall(nullptr, "A::B", 4, "text ", counted);

    EXPECT_EQ(counted.streamed, 0);
}

TEST(LogCallTest, LevelThatIsOffIsAskedOnceAndNeverLoggedNorAssembled) {
    const auto logger = std::make_shared<RecordingLogger>(5);
    const Counted counted;

    LogCall(logger, "A::B", 4, "text ", counted);

    EXPECT_EQ(logger->EnabledCalls(), 1);
    EXPECT_TRUE(logger->Entries().empty());
    EXPECT_EQ(counted.streamed, 0);
}

TEST(LogCallTest, AsksForAndLogsExactlyTheLevelOfTheCall) {
    const auto logger = std::make_shared<OneLevelLogger>(3);

    for (int level = 0; level <= 4; ++level)
        LogCall(logger, "A::B", level, "text");

    EXPECT_EQ(logger->asked, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(logger->logged, (std::vector<int>{3}));
}

TEST(LogCallTest, StreamsLiteralsAndValuesInOrderIntoOneMessage) {
    const auto logger = std::make_shared<RecordingLogger>();

    LogCall(logger, "Ombry::Some::Function", 3, "Getting token for ", std::string("v1-auth"), ", attempt ", 2,
            " of ", 4294967295u, 'x', true);

    ASSERT_EQ(logger->Entries().size(), 1u);
    const RecordingLogger::Entry entry = logger->Entries().front();
    EXPECT_EQ(entry.message, "Getting token for v1-auth, attempt 2 of 4294967295x1");
    EXPECT_EQ(entry.function, "Ombry::Some::Function");
    EXPECT_EQ(entry.level, 3);
}

TEST(LogCallTest, NumbersAreWrittenTheSameWhateverTheLocaleOfTheProcess) {
    const GroupingLocale grouping;
    const auto logger = std::make_shared<RecordingLogger>();

    LogCall(logger, "A::B", 1, "Waiting ", std::int64_t{16'000}, [] { return 1'000; });

    EXPECT_EQ(logger->Messages(), (std::vector<std::string>{"Waiting 160001000"}));
}

TEST(LogCallTest, EachCallOfAFunctionBearsItsOwnLineAndTheSourcePath) {
    const auto logger = std::make_shared<RecordingLogger>();
    constexpr const char* function = "Ombry::Some::Function";

    const int before = __LINE__;
    LogCall(logger, function, 0, "first");
    LogCall(logger, function, 0, "second");

    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].line, before + 1);
    EXPECT_EQ(entries[1].line, before + 2);
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.file, __FILE__);
        EXPECT_EQ(entry.function, "Ombry::Some::Function");
    }
}

TEST(LogCallTest, HelperThatLogsForItsCallersHandsOnTheirPlaces) {
    const auto logger = std::make_shared<RecordingLogger>();

    const int before = __LINE__;
    Report(logger, "A::First", "one");
    Report(logger, "A::Second", "two");

    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].line, before + 1);
    EXPECT_EQ(entries[0].function, "A::First");
    EXPECT_EQ(entries[1].line, before + 2);
    EXPECT_EQ(entries[1].function, "A::Second");
}

TEST(LogCallTest, CallablePartIsCalledOnceAndOnlyIfTheLevelIsOn) {
    int calls = 0;
    const auto costly = [&calls] { return ++calls; };

    LogCall(nullptr, "A::B", 4, "made ", costly);
    LogCall(std::make_shared<RecordingLogger>(5), "A::B", 4, "made ", costly);
    EXPECT_EQ(calls, 0);

    const auto logger = std::make_shared<RecordingLogger>(4);
    LogCall(logger, "A::B", 4, "made ", costly, " of it");

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(logger->Messages(), (std::vector<std::string>{"made 1 of it"}));
}

TEST(LogCallTest, KeepsBytesBehindANul) {
    const auto logger = std::make_shared<RecordingLogger>();
    const std::string text("a\0b", 3);

    LogCall(logger, "A::B", 0, text, "c");

    EXPECT_EQ(logger->Messages(), (std::vector<std::string>{std::string("a\0bc", 4)}));
}

TEST(LogCallTest, LoggerLivesThroughTheCallThoughItsOwnerLetsGo) {
    bool destroyed = false;
    bool destroyedWhileLogging = true;
    std::shared_ptr<ILogger> logger;
    logger = std::make_shared<SelfReleasingLogger>(logger, destroyed, destroyedWhileLogging);

    LogCall(logger, "A::B", 0, "text");

    EXPECT_FALSE(destroyedWhileLogging);
    EXPECT_TRUE(destroyed);
}

TEST(LogCallTest, ExceptionOfALoggerPassesIntoTheCaller) {
    const auto logger = std::make_shared<ThrowingLogger>();

    EXPECT_THROW(LogCall(logger, "A::B", 0, "text"), std::logic_error);
}

}  // namespace
}  // namespace Ombry::Tests
