#pragma once

#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephTaskIf.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <sstream>

namespace Ombry::Tests {

template <class Pointer>
std::string PointerText(Pointer* p) {
    std::ostringstream text;
    text << static_cast<const void*>(p);
    return text.str();
}

// Writes down what it hears, and then does what the test wants.
class ReactorHandler : public OmbryZephCore::ZephIOCompletionHandlerIf {
public:
    ReactorHandler(std::string name, std::vector<std::string>& events)
        : name(std::move(name)), events(events) {}
    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        events.push_back(name + (nTaskType == 0 ? " read " : " write ") + std::to_string(nTaskType) +
                         (bSuccess ? " ok " + std::to_string(nBytes) : " failed"));
        ++completions;
        lastBytes = nBytes;
        if (onComplete) onComplete(nTaskType);
    }
    void AbortTask(std::uint32_t) override { events.push_back(name + " abort"); }
    void OnDrained() override { events.push_back(name + " drained"); }
    WriteTail TakeWriteTail() override { return {tailBytes, hasMore}; }

    bool hasMore = false;
    std::uint32_t tailBytes = 0;
    std::function<void(std::uint32_t nTaskType)> onComplete;
    int completions = 0;
    std::uint32_t lastBytes = 0;

private:
    const std::string name;
    std::vector<std::string>& events;
};

class ReactorTask : public OmbryZephCore::ZephTaskIf {
public:
    explicit ReactorTask(std::function<void()> action) : action(std::move(action)) {}
    void DoTask() override { action(); }

private:
    std::function<void()> action;
};

/// A reactor over scripted sockets and a clock that stands still.
class ReactorFixture : public ::testing::Test {
protected:
    static constexpr auto Second = Duration(TicksPerSecond);

    using Lines = std::vector<std::string>;
    using Handler = ReactorHandler;
    using Task = ReactorTask;
    using SocketHandle = Platform::SocketHandle;

    SocketHandle Connect(Handler& handler) {
        const SocketHandle h = sockets.AddConnected();
        EXPECT_EQ(manager.RegisterForIOCompletion(h, &handler), OmbryZephCore::eRC_Success);
        return h;
    }
    std::uint32_t Read(SocketHandle h, std::uint32_t nBytes = 16) {
        return manager.StartIO(0, h, nBytes, input.data());
    }
    std::uint32_t Write(SocketHandle h, std::uint32_t nBytes = 5) {
        return manager.StartIO(1, h, nBytes, output.data());
    }
    // Each wait without an event takes as long as it was asked to.
    void LetTimePass() {
        sockets.OnIdle([this](std::int64_t ms) { clock.Advance(Duration(ms * (TicksPerSecond / 1000))); });
    }
    Task Note(const std::string& event) {
        return Task([this, event] { events.push_back(event); });
    }

    FakeClock clock;
    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    OmbryZephCore::ZephIOTaskManager_Sync manager{logger};
    Lines events;
    Handler a{"a", events};
    Handler b{"b", events};
    Handler c{"c", events};
    std::array<std::uint8_t, 64> input{};
    std::array<std::uint8_t, 64> output{'h', 'e', 'l', 'l', 'o'};
};

}  // namespace Ombry::Tests
