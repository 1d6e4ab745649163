#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <string>

namespace Ombry::Tests {

/// Lets one thing fail on one thread while it lives: the n-th allocation, the n-th one of the crypto library,
/// the n-th start of a thread or the n-th call of the platform, alone or with all that come behind it.
/// Allocations are those with `new` and those with `malloc` from what is linked into the executable: ours,
/// and what library headers leave in it. A clock does not fail, but the n-th look at it may find that it has
/// jumped; nor does a byte of the network, but behind the n-th one the connection may break or fall silent.
/// The thread that makes this object is number 0, those that it or they start are 1, 2 and so on; nobody else
/// notices anything. One object at a time.
class NthFailure {
public:
    enum class Of {
        Allocation,
        CryptoAllocation,
        ThreadStart,
        PlatformCall,
        ClockAhead,
        ClockBack,
        SentByte,
        ReceivedByte,
        LastByte,   ///< received; the peer then ends the connection in good order
        SilentByte  ///< received; then nothing comes any more, and what is sent gets lost
    };

    static constexpr std::array Bytes{Of::SentByte, Of::ReceivedByte, Of::LastByte, Of::SilentByte};

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

    /// For what passes in bytes: how many of those at hand come before it happens; all if nothing is to come.
    static std::size_t Before(Of what, std::size_t bytes);
    /// Counts bytes that have passed, and says whether it happens behind them.
    static bool StrikesBehind(Of what, std::size_t bytes);
    /// Whether it has happened to the calling thread, for good.
    static bool HasStruckForGood(Of what);

    /// Number of the calling thread; one that was not started below is `Foreign`.
    static std::size_t ThisThread();
    static constexpr std::size_t Foreign = static_cast<std::size_t>(-1);

    /// Blocks of either kind that were allocated and not given back, in the whole process.
    static long LiveBlocks();

    /// Nothing is passed over where runs are many; for a run by hand.
    static inline bool isThorough = false;

private:
    /// The object whose plan is about this, on this thread; null if there is none.
    static NthFailure* About(Of what);

    const Plan plan;
    std::atomic<std::size_t> count = 0;
};

}  // namespace Ombry::Tests
