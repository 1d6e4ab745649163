// Each in a process of its own: an event reaches all that share a console, and what the system does behind
// one cannot be undone.

#include "StopSignals.h"
#include "tests/Platform/Windows/SecondProcess.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace Ombry::Tests {
namespace {

class StopSignalsTest : public testing::Test {
protected:
    static bool IsSecond() { return !SecondProcess::Message().empty(); }

    /// Once more in a process with a console that nobody sees.
    static DWORD EndOfTheSecond(const std::string& message) {
        return SecondProcess(message, {}, CREATE_NO_WINDOW).Wait();
    }

    /// Does with an event what the system does, which nobody could have close a session for a test: has its
    /// own function tell the handlers, on a new thread, and then for some events ends the process.
    static void Tell(DWORD event) {
        const auto tell = reinterpret_cast<LPTHREAD_START_ROUTINE>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
        ASSERT_TRUE(tell);
        std::thread([=] {
            tell(reinterpret_cast<void*>(std::uintptr_t{event}));
            told = true;
            if (event >= CTRL_CLOSE_EVENT) TerminateProcess(GetCurrentProcess(), STATUS_CONTROL_C_EXIT);
        }).detach();
    }
    static inline std::atomic<bool> told = false;

    void AwaitCancellation() const {
        while (!token.IsCancelled())
            std::this_thread::yield();
    }

    const Cancellation::Token token = Cancellation::CreateCancellable();
    std::unique_ptr<Example::StopSignals> signals = std::make_unique<Example::StopSignals>(token);
};

TEST_F(StopSignalsTest, KeyCancelsTheTokenAndTheProcessGoesOn) {
    if (!IsSecond()) {
        EXPECT_EQ(EndOfTheSecond("go"), 0u);
        return;
    }
    SetConsoleCtrlHandler(nullptr, FALSE);  // whether Ctrl+C is passed over is inherited
    EXPECT_FALSE(token.IsCancelled());
    ASSERT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
    AwaitCancellation();
}

TEST_F(StopSignalsTest, EachEventCancelsTheTokenAndTheProcessComesToItsOwnEnd) {
    constexpr DWORD Events[]{CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT, CTRL_LOGOFF_EVENT,
                             CTRL_SHUTDOWN_EVENT};
    if (!IsSecond()) {
        for (const DWORD event : Events)
            EXPECT_EQ(EndOfTheSecond(std::to_string(event)), 0u) << event;
        return;
    }
    const auto event = static_cast<DWORD>(std::stoul(SecondProcess::Message()));
    Tell(event);
    AwaitCancellation();
    // Time for a thread that would not be held.
    for (int left = 1000; left > 0; --left)
        std::this_thread::yield();
    while (event < CTRL_CLOSE_EVENT && !told)
        std::this_thread::yield();
    signals.reset();  // whatever lock of the system's the held thread has
}

TEST_F(StopSignalsTest, EventThatComesAfterItsEndIsTheSystemsAgain) {
    if (!IsSecond()) {
        // The system's own words for that end differ; that there is one is the point.
        const DWORD code = EndOfTheSecond("go");
        EXPECT_TRUE(code == 0 || code == STATUS_CONTROL_C_EXIT) << code;
        return;
    }
    signals.reset();
    Tell(CTRL_CLOSE_EVENT);
    for (;;)
        std::this_thread::yield();
}

TEST_F(StopSignalsTest, ProgramThatNobodyAskedToEndIsNotHeldUp) {
    signals.reset();
    EXPECT_FALSE(token.IsCancelled());
}

}  // namespace
}  // namespace Ombry::Tests
