#pragma once

#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/IClock.h"
#include "tests/Fakes/ScriptedSockets.h"
#include "tests/NthFailure/NthFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <set>
#include <streambuf>
#include <string>
#include <vector>

namespace Ombry::Tests {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool IsSanitized = true;
#else
inline constexpr bool IsSanitized = false;
#endif

/// Takes what is written to a stream into room of its own: what lacks memory is the tool, not the test.
class FixedCapture : public std::streambuf {
public:
    explicit FixedCapture(std::ostream& stream) : stream(stream), previous(stream.rdbuf(this)) {
        setp(room, room + sizeof room);
    }
    ~FixedCapture() override { stream.rdbuf(previous); }
    FixedCapture(const FixedCapture&) = delete;
    FixedCapture& operator=(const FixedCapture&) = delete;

    std::string Text() const { return std::string(pbase(), pptr()); }

private:
    std::ostream& stream;
    std::streambuf* const previous;
    char room[65536];
};

/// The clock in force, which goes on whatever memory is left, since it is a fake, and jumps when it is to.
class JumpingClock : public Platform::IClock {
public:
    TimePoint Now() override {
        const Duration by = Jump();
        const NthFailure::Pause pause;
        return inner.Now() + by;
    }
    Duration SteadyNow() override {
        Jump();
        const NthFailure::Pause pause;
        return inner.SteadyNow() + slept.load();
    }
    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        const NthFailure::Pause pause;
        inner.Wait(condition, lock, atMost);
    }
    void Sleep(Duration slice) override {
        const NthFailure::Pause pause;
        inner.Sleep(slice);
    }

private:
    /// An administrator sets the system clock, either way, or the process is stopped for an hour.
    Duration Jump() {
        if (NthFailure::Strikes(NthFailure::Of::ClockAhead)) {
            slept = slept.load() + std::chrono::hours(1);
            ahead = ahead.load() + std::chrono::hours(24 * 400);
        }
        if (NthFailure::Strikes(NthFailure::Of::ClockBack)) {
            ahead = ahead.load() - std::chrono::hours(24 * 400);
        }
        return ahead;
    }

    Platform::IClock& inner = Platform::Clock();
    std::atomic<Duration> ahead = Duration::zero();
    std::atomic<Duration> slept = Duration::zero();
    const Platform::Testing::Replace<Platform::IClock> replaced{*this};
};

struct StarvedRun {
    int exitCode = 0;
    std::string out;
    std::string error;
    bool happened = false;  ///< whether the command came as far as what was to fail
};

/// One run of the tool in which something fails, once its commands are registered: that stands outside of the
/// handler of exceptions.
inline StarvedRun RunStarved(const std::vector<std::string>& words, const NthFailure::Plan& plan) {
    std::vector<std::string> all{"Ombry.SecClientConfig"};
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char*> argv;
    for (std::string& word : all)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    SecClientConfig::RegisterCommands();
    StarvedRun run;
    FixedCapture out(std::cout);
    FixedCapture error(std::cerr);
    {
        const NthFailure failure(plan);
        run.exitCode = SecClientConfig::Dispatch(static_cast<int>(all.size()), argv.data());
        run.happened = failure.HasHappened();
    }
    run.out = out.Text();
    run.error = error.Text();
    return run;
}

/// Where the network was cut a command says one of these texts, if anything.
inline void ExpectStatedIfCut(const NthFailure::Plan& plan, const StarvedRun& run,
                              const std::set<std::string>& stated) {
    if (std::ranges::count(NthFailure::Bytes, plan.what) == 0 || run.error.empty()) return;
    EXPECT_TRUE(stated.contains(run.error)) << run.error;
}

/// A wait that nothing ends makes time pass.
inline void PassTheTimeOfWaits(ScriptedSockets& sockets) {
    sockets.OnIdle(
        [](std::int64_t milliseconds) { Platform::Clock().Sleep(std::chrono::milliseconds(milliseconds)); });
}

/// How many n there are from one run to the next: one at first, then more and more; sooner where a run takes
/// long.
inline std::size_t StepBehind(std::size_t n, NthFailure::Of what, bool forGood) {
    if (NthFailure::isThorough) return 1;
    if (what == NthFailure::Of::CryptoAllocation) return 1 + n / (IsSanitized ? 5 : 12);
    return 1 + n / (IsSanitized ? 20 : forGood ? 50 : 400);
}

/// Calls `once` with the plan, which must give back all the memory that it takes, and says whether what was
/// to fail has been there. A growth once or twice is one of what is kept: names that the crypto library has
/// looked up, a table that is made larger.
inline bool FailOnce(const NthFailure::Plan& plan, const std::function<bool(const NthFailure::Plan&)>& once) {
    SCOPED_TRACE(plan.Text());
    bool happened = false;
    long growth = 0;
    int tries = 0;
    do {
        const long before = NthFailure::LiveBlocks();
        happened = once(plan);
        growth = NthFailure::LiveBlocks() - before;
    } while (growth > 0 && ++tries < 10 && !testing::Test::HasFailure());
    EXPECT_LE(growth, 0) << "blocks are lost each time";
    return happened && !testing::Test::HasFailure();
}

/// For every n until nothing of that kind is left that could fail, alone and for good, but for what
/// `StepBehind` passes over.
inline void FailEach(NthFailure::Of what, std::size_t thread,
                     const std::function<bool(const NthFailure::Plan&)>& once) {
    for (const bool forGood : {false, true}) {
        std::size_t n = 1;
        while (FailOnce({what, n, forGood, thread}, once))
            n += StepBehind(n, what, forGood);
    }
}

/// The network breaks behind every byte, in each direction and in each way, once and for good, or falls
/// silent; or behind each of so many, where a sanitizer is at work of so many more. The ways begin at bytes
/// of their own, so that they do not all pass over the same ones.
inline void FailEachByte(std::size_t thread, std::size_t width,
                         const std::function<bool(const NthFailure::Plan&)>& once) {
    const std::size_t step = NthFailure::isThorough ? 1 : IsSanitized ? 8 * width : width;
    std::size_t way = 0;
    for (const NthFailure::Of what : NthFailure::Bytes) {
        for (const bool forGood : {false, true}) {
            std::size_t n = 1 + way++ * step / (2 * NthFailure::Bytes.size());
            while (FailOnce({what, n, forGood, thread}, once))
                n += step;
        }
    }
}

/// How wide the steps between bytes are: a handshake takes longer than a command.
inline constexpr std::size_t PlainWidth = 83;
inline constexpr std::size_t TlsWidth = 809;

/// Each kind of failure but those of the crypto library.
inline void FailEverywhere(std::size_t thread, const std::function<bool(const NthFailure::Plan&)>& once,
                           std::size_t width = PlainWidth) {
    using Of = NthFailure::Of;
    once({});  // what is made once and stays
    for (const Of what : {Of::Allocation, Of::ThreadStart, Of::PlatformCall})
        FailEach(what, thread, once);
    for (const Of what : {Of::ClockAhead, Of::ClockBack}) {
        for (std::size_t n = 1; FailOnce({what, n, false, thread}, once);)
            n += StepBehind(n, what, false);
    }
    FailEachByte(thread, width, once);
}

}  // namespace Ombry::Tests
