#pragma once

#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/IClock.h"
#include "tests/NthFailure/NthFailure.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <limits>
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

/// The clock in force, which goes on whatever memory is left: it is a fake.
class UndisturbedClock : public Platform::IClock {
public:
    TimePoint Now() override {
        const NthFailure::Pause pause;
        return inner.Now();
    }
    Duration SteadyNow() override {
        const NthFailure::Pause pause;
        return inner.SteadyNow();
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
    Platform::IClock& inner = Platform::Clock();
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

/// Calls `once` for every n until nothing of that kind is left that could fail, alone and for good; `once`
/// says whether it happened, and must give back all the memory that it takes. The further from the start, the
/// wider the steps, but not for what of ours fails alone where no sanitizer slows it down.
inline void FailEach(NthFailure::Of what, std::size_t thread,
                     const std::function<bool(const NthFailure::Plan&)>& once) {
    for (const bool forGood : {false, true}) {
        const std::size_t every = what == NthFailure::Of::CryptoAllocation ? 25
                                  : IsSanitized || forGood                 ? 50
                                                           : std::numeric_limits<std::size_t>::max();
        std::size_t n = 1;
        for (bool happened = true; happened; n += 1 + n / every) {
            const NthFailure::Plan plan{what, n, forGood, thread};
            SCOPED_TRACE(plan.Text());
            long growth = 0;
            int tries = 0;
            do {
                const long before = NthFailure::LiveBlocks();
                happened = once(plan);
                growth = NthFailure::LiveBlocks() - before;
            } while (growth > 0 && ++tries < 3 && !testing::Test::HasFailure());
            EXPECT_LE(growth, 0) << "blocks are lost each time";
            if (testing::Test::HasFailure()) return;
        }
    }
}

/// Each kind of failure but those of the crypto library.
inline void FailEverywhere(std::size_t thread, const std::function<bool(const NthFailure::Plan&)>& once) {
    using Of = NthFailure::Of;
    once({});  // what is made once and stays
    for (const Of what : {Of::Allocation, Of::ThreadStart, Of::PlatformCall}) {
        FailEach(what, thread, once);
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace Ombry::Tests
