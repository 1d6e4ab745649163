#include <gtest/gtest.h>

#include "ClientCommunications/Impl/ICandidateServiceFinder.h"
#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinderFactory.h"
#include "tests/Fakes/LockFree.h"

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Cancellation::Token;

/// A call that searches and one that waits for it, for a thread sanitizer: each test fails under it if one of
/// the two touches the shared state without the lock. Where no test is, the search itself keeps others away:
/// the server is only read by who searches, or when it can change no more.
class IndefinitelyStickyIteratePolicyThreadsTest : public testing::Test {
protected:
    using CallPtr = std::unique_ptr<ICandidateServiceFinder>;

    CallPtr NewCall() { return shared->Create(finder); }

    static void Ask(const CallPtr& call) { EXPECT_TRUE(call->GetNextCandidate(Token()).service); }

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
    std::barrier<> found(2);
    finder->onFind = [&] { found.arrive_and_wait(); };
    RunInStep({[&](int thread) {
        if (thread == 0) {
            Ask(searching);
            return;
        }
        found.arrive_and_wait();
        EXPECT_THROW(waiting->GetNextCandidate(Cancellation::CreateTimeout(Duration(0))),
                     Cancellation::TimeoutException);
    }});
}

}  // namespace
}  // namespace Ombry::Tests
