#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace Ombry::Tests {

/// Lets one thing fail on one thread while it lives: the n-th allocation, the n-th one of the crypto library,
/// the n-th start of a thread or the n-th call of the platform, alone or with all that come behind it.
/// Allocations are those with `new` and those with `malloc` from what is linked into the executable: ours,
/// and what library headers leave in it. The thread that makes this object is number 0, those that it or they
/// start are 1, 2 and so on; nobody else notices anything. One object at a time.
class NthFailure {
public:
    enum class Of { Allocation, CryptoAllocation, ThreadStart, PlatformCall };

    struct Plan {
        Of what = Of::Allocation;
        std::size_t n = 0;  ///< counted from 1; 0 lets nothing fail
        bool forGood = false;
        std::size_t thread = 0;

        std::string Text() const;
    };

    explicit NthFailure(const Plan& plan);
    ~NthFailure();
    NthFailure(const NthFailure&) = delete;
    NthFailure& operator=(const NthFailure&) = delete;

    bool HasHappened() const { return count >= plan.n && plan.n != 0; }

    /// Nothing of the calling thread is counted or fails while it lives: a fake is at work, or a test.
    class Pause {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };

    /// Nothing of the calling thread fails any more.
    static void SpareThisThread();

    /// For what can fail: counts, and says whether this one does.
    static bool Strikes(Of what);

    /// Number of the calling thread; one that was not started below is `Foreign`.
    static std::size_t ThisThread();
    static constexpr std::size_t Foreign = static_cast<std::size_t>(-1);

    /// Blocks of either kind that were allocated and not given back, in the whole process.
    static long LiveBlocks();

private:
    const Plan plan;
    std::atomic<std::size_t> count = 0;
};

}  // namespace Ombry::Tests
