#include "ClientCommunications/Impl/ICandidateServiceFinder.h"
#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinderFactory.h"
#include "tests/Fakes/LockFree.h"
#include "tests/Fakes/Meeting.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Cancellation::Token;

/// A call that searches and one beside it, for a thread sanitizer: each test fails under it if one of the two
/// touches the shared state without the lock.
class IndefinitelyStickyIteratePolicyThreadsTest : public testing::Test {
protected:
    using CallPtr = std::unique_ptr<ICandidateServiceFinder>;

    CallPtr NewCall() { return shared->Create(finder); }

    static void Ask(const CallPtr& call) { EXPECT_TRUE(call->GetNextCandidate(Token()).service); }

    /// A call that borrowed its server from one whose search has been given up since. It still counts as a
    /// searcher, beside the next one: the search as such keeps nobody away from it.
    CallPtr Leftover() {
        Ask(searching);
        CallPtr borrowing = NewCall();
        Ask(borrowing);
        searching.reset();
        return borrowing;
    }

    LockFreeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    const std::shared_ptr<IndefinitelyStickyPolicyCandidateFinderFactory> shared =
        std::make_shared<IndefinitelyStickyPolicyCandidateFinderFactory>(std::make_shared<NoMemory>(),
                                                                         nullptr);
    const std::shared_ptr<LockFreeFinder> finder = [] {
        auto made = std::make_shared<LockFreeFinder>();
        made->remote = {"r"};
        return made;
    }();
    CallPtr searching = NewCall();
    CallPtr waiting = NewCall();
    UnorderedSignal looksForServers;
    UnorderedSignal isDone;
};

TEST_F(IndefinitelyStickyIteratePolicyThreadsTest, ASearchThatSucceedsWhileAnotherCallWaits) {
    Ask(searching);
    RunInStep({[&](int thread) { thread == 0 ? searching->MarkSuccess() : Ask(waiting); }});
}

TEST_F(IndefinitelyStickyIteratePolicyThreadsTest, ASearchThatIsGivenUpWhileAnotherCallWaits) {
    Ask(searching);
    RunInStep({[&](int thread) { thread == 0 ? searching.reset() : Ask(waiting); }});
}

TEST_F(IndefinitelyStickyIteratePolicyThreadsTest, ASearchThatComesToAServerWhileAnotherCallWaits) {
    Meeting found(2);
    finder->onFind = [&] { found.ArriveAndWait(); };
    RunInStep({[&](int thread) {
        if (thread == 0) {
            Ask(searching);
            return;
        }
        found.ArriveAndWait();
        EXPECT_THROW(waiting->GetNextCandidate(Cancellation::CreateTimeout(Duration(0))),
                     Cancellation::TimeoutException);
    }});
}

TEST_F(IndefinitelyStickyIteratePolicyThreadsTest, ASearchThatBeginsBeforeALeftoverCallSucceeds) {
    const CallPtr leftover = Leftover();
    finder->onFind = [&] {
        looksForServers.Give();
        isDone.Await();
    };
    RunInStep({[&](int thread) {
        if (thread == 1) {
            Ask(waiting);
            return;
        }
        looksForServers.Await();
        leftover->MarkSuccess();
        isDone.Give();
    }});
}

TEST_F(IndefinitelyStickyIteratePolicyThreadsTest, ACallThatTakesTheServerBeforeALateSearchComesToAnother) {
    const CallPtr leftover = Leftover();
    finder->onFind = [&] {
        looksForServers.Give();
        isDone.Await();
    };
    const CallPtr established = NewCall();
    RunInStep({[&](int thread) {
        if (thread == 1) {
            Ask(waiting);
            return;
        }
        looksForServers.Await();
        leftover->MarkSuccess();
        EXPECT_FALSE(established->GetNextCandidate(Token()).service);
        isDone.Give();
    }});
}

TEST_F(IndefinitelyStickyIteratePolicyThreadsTest, ALeftoverCallThatGoesAfterASearchHasComeToAServer) {
    CallPtr leftover = Leftover();
    RunInStep({[&](int thread) {
        if (thread == 1) {
            Ask(waiting);
            isDone.Give();
            return;
        }
        isDone.Await();
        leftover.reset();
    }});
}

}  // namespace
}  // namespace Ombry::Tests
