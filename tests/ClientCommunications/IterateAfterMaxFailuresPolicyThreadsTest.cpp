#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/ICandidateServiceFinder.h"
#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinderFactory.h"
#include "tests/Fakes/LockFree.h"
#include "tests/Fakes/Meeting.h"

#include <gtest/gtest.h>

#include <array>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Cancellation::Token;

/// Two calls side by side over one shared state, for a thread sanitizer: each test stands for one place where
/// the state is touched, and fails under it if that place has no lock.
class IterateAfterMaxFailuresPolicyThreadsTest : public testing::Test {
protected:
    using CallPtr = std::unique_ptr<ICandidateServiceFinder>;

    CallPtr NewCall() { return shared->Create(finder); }

    static void Ask(const CallPtr& call) { EXPECT_TRUE(call->GetNextCandidate(Token()).service); }

    CallPtr AskedCall() {
        CallPtr call = NewCall();
        Ask(call);
        return call;
    }

    void Succeed(int times) {
        for (int i = 0; i < times; ++i)
            AskedCall()->MarkSuccess();
    }

    /// With no failure allowed each call selects for itself, and thus has objects of its own.
    const std::shared_ptr<IterateAfterMaxFailuresPolicyCandidateFinderFactory> shared =
        std::make_shared<IterateAfterMaxFailuresPolicyCandidateFinderFactory>(std::make_shared<NoMemory>(),
                                                                              nullptr, 0);
    const std::shared_ptr<LockFreeFinder> finder = [] {
        auto made = std::make_shared<LockFreeFinder>();
        made->remote = {"r", "s"};
        return made;
    }();
    Meeting inFind{2};
};

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatSelectTogether) {
    std::array<CallPtr, 2> calls{NewCall(), NewCall()};
    RunInStep({[&](int thread) { Ask(calls[thread]); }});
}

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatSucceedTogether) {
    std::array<CallPtr, 2> calls{AskedCall(), AskedCall()};
    RunInStep({[&](int thread) { calls[thread]->MarkSuccess(); }});
}

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatFailTogether) {
    std::array<CallPtr, 2> calls{AskedCall(), AskedCall()};
    RunInStep({[&](int thread) { Ask(calls[thread]); }});
}

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatAreGivenUpTogether) {
    std::array<CallPtr, 2> calls{AskedCall(), AskedCall()};
    RunInStep({[&](int thread) { calls[thread].reset(); }});
}

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, ACallThatBeginsWhileAnotherSucceeds) {
    const CallPtr ending = AskedCall();
    Succeed(1);
    const CallPtr beginning = NewCall();
    RunInStep({[&](int thread) { thread == 0 ? ending->MarkSuccess() : Ask(beginning); }});
}

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatFindAWayHomeTogether) {
    Succeed(50);
    finder->local = {"l"};
    finder->onFind = [&] { inFind.ArriveAndWait(); };
    std::array<CallPtr, 2> calls{NewCall(), NewCall()};
    RunInStep({[&](int thread) { Ask(calls[thread]); }});
}

TEST_F(IterateAfterMaxFailuresPolicyThreadsTest, CallsWhoseSearchForAWayHomeFailsTogether) {
    Succeed(50);
    finder->onFind = [&] {
        inFind.ArriveAndWait();
        throw CommunicationsError("down");
    };
    std::array<CallPtr, 2> calls{NewCall(), NewCall()};
    RunInStep(
        {[&](int thread) { EXPECT_THROW(calls[thread]->GetNextCandidate(Token()), CommunicationsError); }});
}

}  // namespace
}  // namespace Ombry::Tests
