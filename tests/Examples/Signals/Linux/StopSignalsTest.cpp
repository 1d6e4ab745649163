// Each in a process of its own: what a signal leaves behind in one cannot be undone.

#include "StopSignals.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <optional>
#include <thread>

namespace Ombry::Tests {
namespace {

/// Lets `act` do what it does to a program with stop signals, which then ends well.
template <class Act>
[[noreturn]] void EndAfter(Act act) {
    const Cancellation::Token token = Cancellation::CreateCancellable();
    {
        const Example::StopSignals signals(token);
        act(token);
    }
    std::_Exit(0);
}

void AwaitCancellation(const Cancellation::Token& token) {
    while (!token.IsCancelled())
        std::this_thread::yield();
}

TEST(StopSignalsDeathTest, SignalCancelsTheTokenAndIsNotTheEndOfTheProcess) {
    for (const int signal : {SIGINT, SIGTERM}) {
        EXPECT_EXIT(EndAfter([&](const Cancellation::Token& token) {
                        if (token.IsCancelled()) std::_Exit(1);
                        kill(getpid(), signal);
                        AwaitCancellation(token);
                    }),
                    testing::ExitedWithCode(0), "")
            << signal;
    }
}

TEST(StopSignalsDeathTest, SecondSignalChangesNothing) {
    EXPECT_EXIT(EndAfter([](const Cancellation::Token& token) {
                    kill(getpid(), SIGINT);
                    AwaitCancellation(token);
                    kill(getpid(), SIGTERM);
                    kill(getpid(), SIGINT);
                }),
                testing::ExitedWithCode(0), "");
}

TEST(StopSignalsDeathTest, ProgramThatNobodyAskedToEndIsNotHeldUp) {
    EXPECT_EXIT(EndAfter([](const Cancellation::Token& token) {
                    if (token.IsCancelled()) std::_Exit(1);
                }),
                testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Ombry::Tests
