#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/ICandidateServiceFinder.h"
#include "ClientCommunications/Impl/IndefinitelyStickyIteratePolicy.h"
#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinderFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeFailedServices.h"
#include "tests/Fakes/FakeServiceFinder.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;
using CallPtr = std::unique_ptr<ICandidateServiceFinder>;

std::string Next(const CallPtr& call, const Token& token = Token()) {
    const ServiceCandidate candidate = call->GetNextCandidate(token);
    if (!candidate.service) return "none";
    return candidate.service->GetId() + (candidate.isLocal ? " local" : " remote");
}

class IndefinitelyStickyIteratePolicyTest : public testing::Test {
protected:
    void UseMemory(std::shared_ptr<IFailedServices> memory) {
        shared = std::make_shared<IndefinitelyStickyPolicyCandidateFinderFactory>(memory, nullptr);
    }

    CallPtr NewCall() { return shared->Create(finder); }

    std::string Run() {
        const CallPtr call = NewCall();
        const std::string first = Next(call);
        call->MarkSuccess();
        return first;
    }

    /// A call on a thread of its own, which waits while the search is held elsewhere.
    std::thread CallBeside(std::string& result, const Token& token = Token()) {
        return std::thread([this, &result, token] {
            try {
                const CallPtr call = NewCall();
                result = Next(call, token);
                if (result != "none") call->MarkSuccess();
            } catch (const std::exception& failure) {
                result = failure.what();
            }
        });
    }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::shared_ptr<FakeFailedServices> failed = std::make_shared<FakeFailedServices>();
    std::shared_ptr<FakeServiceFinder> finder = std::make_shared<FakeServiceFinder>();
    std::shared_ptr<IndefinitelyStickyPolicyCandidateFinderFactory> shared =
        std::make_shared<IndefinitelyStickyPolicyCandidateFinderFactory>(failed, nullptr);
};

TEST_F(IndefinitelyStickyIteratePolicyTest, TheFirstServerThatWorkedIsUsedForEver) {
    finder->Set({}, {"r"});
    EXPECT_EQ(Run(), "r remote");
    finder->Set({"l"}, {});
    for (int i = 0; i < 60; ++i)
        ASSERT_EQ(Run(), "r remote");
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ASearchGoesOnToTheNextServerWithinTheCall) {
    finder->Set({"l"}, {"r"});
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "r remote"}));
    call->MarkSuccess();
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local", "removed r"}));
    EXPECT_EQ(finder->Calls(), 1u);
    EXPECT_EQ(Run(), "r remote");
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ASearchThatRunsOutOfServersIsOver) {
    finder->Set({"l"}, {});
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "none"}));
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));
    EXPECT_EQ(Run(), "l local");  // at once, though the first call still lives
    EXPECT_EQ(finder->Calls(), 2u);
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ACallThatRanOutOfServersLeavesTheNextSearchAloneWhenItGoes) {
    finder->Set({"l"}, {});
    CallPtr first = NewCall();
    EXPECT_EQ((Lines{Next(first), Next(first)}), (Lines{"l local", "none"}));
    const CallPtr second = NewCall();
    EXPECT_EQ(Next(second), "l local");
    first.reset();
    EXPECT_EQ(Next(NewCall()), "l local");  // borrowed: the search is still that of the second
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, WithoutAnyServerTheSearchIsFreeAtOnce) {
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "none");
    finder->Set({"l"}, {});
    EXPECT_EQ(Run(), "l local");
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AnEstablishedServerThatFailsIsNeverLeft) {
    const auto memory = std::make_shared<FailedServices>(
        std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), 30min);
    UseMemory(memory);
    finder->Set({"l"}, {"r"});
    EXPECT_EQ(Run(), "l local");
    const TimePoint start = clock.Now();
    std::vector<Duration> passed;
    for (int i = 0; i < 4; ++i) {
        const CallPtr call = NewCall();
        EXPECT_EQ(Next(call), "l local");
        passed.push_back(clock.Now() - start);
        EXPECT_EQ(Next(call), "none");  // once a call, never another server
    }
    EXPECT_EQ(passed, (std::vector<Duration>{0s, 1s, 3s, 7s}));
    EXPECT_EQ(Run(), "l local");
    EXPECT_FALSE(memory->Get("l").failed);
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AnEstablishedServerWhoseFailureEndsTheCallHasNoRecordOfIt) {
    finder->Set({"l"}, {});
    EXPECT_EQ(Run(), "l local");
    failed->ClearChanges();
    EXPECT_EQ(Next(NewCall()), "l local");
    EXPECT_EQ(failed->Changes(), Lines{});
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "none"}));
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));
}

TEST_F(IndefinitelyStickyIteratePolicyTest,
       ASearchThatWasGivenUpCountsAsAFailureAndTheNextCallSearchesAgain) {
    finder->Set({"l"}, {"r"});
    { EXPECT_EQ(Next(NewCall()), "l local"); }
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));
    EXPECT_EQ(Run(), "r remote");
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ASearchThatFailsIsTriedAgainByTheSameCall) {
    finder->OnFind([] { throw CommunicationsError("down"); });
    const CallPtr call = NewCall();
    EXPECT_THROW(Next(call), CommunicationsError);
    finder->OnFind(nullptr);
    finder->Set({"l"}, {});
    EXPECT_EQ(Next(call), "l local");
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AnExceptionOfAnyTypeReleasesTheSearch) {
    finder->OnFind([] { throw 42; });
    EXPECT_THROW(Next(NewCall()), int);
    finder->OnFind([] { throw std::logic_error("broken"); });
    EXPECT_THROW(Next(NewCall()), std::logic_error);
    finder->OnFind(nullptr);
    finder->Set({"l"}, {});
    EXPECT_EQ(Run(), "l local");
    EXPECT_TRUE(clock.Waits().empty());
    EXPECT_TRUE(failed->Changes() == Lines{"removed l"});
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AServerThatWasGivenUpDoesNotKeepAFailedSearchFromEnding) {
    finder->Set({"l"}, {});
    { EXPECT_EQ(Next(NewCall()), "l local"); }
    finder->OnFind([] { throw CommunicationsError("down"); });
    EXPECT_THROW(Next(NewCall()), CommunicationsError);
    finder->OnFind(nullptr);
    EXPECT_EQ(Run(), "l local");
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ACancelledWaitForAFailedServerReleasesTheSearch) {
    finder->Set({"l"}, {});
    failed->Set("l", {true, true, clock.Now() + Duration(30s), 1});
    EXPECT_THROW(Next(NewCall(), Cancellation::CreateTimeout(1s)), Cancellation::TimeoutException);
    EXPECT_TRUE(failed->Changes().empty());
    failed->Forget("l");
    EXPECT_EQ(Run(), "l local");
}

TEST_F(IndefinitelyStickyIteratePolicyTest, TheTokenOfTheCallGoesToTheSearch) {
    const Token token = Cancellation::CreateCancellable();
    Next(NewCall(), token);
    token.Cancel();
    EXPECT_TRUE(finder->Tokens().at(0).IsCancelled());
}

TEST_F(IndefinitelyStickyIteratePolicyTest, TheTokenEndsTheWaitForTheEstablishedServer) {
    finder->Set({"l"}, {});
    Run();
    failed->Set("l", {true, true, clock.Now() + Duration(30s), 1});
    EXPECT_THROW(Next(NewCall(), Cancellation::CreateTimeout(1s)), Cancellation::TimeoutException);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AMemoryThatThrowsReleasesTheSearchToo) {
    finder->Set({"l"}, {"r"});
    failed->FailRecording(std::make_exception_ptr(std::bad_alloc()));
    { EXPECT_EQ(Next(NewCall()), "l local"); }  // as the call goes
    {
        const CallPtr call = NewCall();  // and as it asks again
        EXPECT_EQ(Next(call), "l local");
        EXPECT_THROW(Next(call), std::bad_alloc);
        std::string beside;
        CallBeside(beside).join();
        EXPECT_EQ(beside, "l local");
    }
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ASuccessThatCannotBeMarkedReleasesTheSearch) {
    finder->Set({"l"}, {});
    failed->FailRemoving(std::make_exception_ptr(std::bad_alloc()));
    {
        const CallPtr call = NewCall();
        Next(call);
        EXPECT_THROW(call->MarkSuccess(), std::bad_alloc);
    }
    failed->FailRemoving(nullptr);
    EXPECT_EQ(Run(), "l local");
    EXPECT_EQ(finder->Calls(), 2u);
}

// Several calls at once.

TEST_F(IndefinitelyStickyIteratePolicyTest, WhileOneSearchesOthersWaitInSlicesUntilItSucceeds) {
    finder->Set({"l"}, {"r"});
    const CallPtr searcher = NewCall();
    EXPECT_EQ(Next(searcher), "l local");
    std::string result;
    std::thread beside = CallBeside(result);
    clock.AwaitWaiters(1);
    clock.Advance(250ms);
    while (clock.Waits().size() < 2)
        std::this_thread::yield();
    searcher->MarkSuccess();
    beside.join();
    EXPECT_EQ(result, "l local");
    EXPECT_EQ(clock.Waits(), (std::vector<Duration>{250ms, 250ms}));
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AWaitingCallIsCancelledAfterItsSlice) {
    finder->Set({"l"}, {});
    const CallPtr searcher = NewCall();
    Next(searcher);
    const Token token = Cancellation::CreateCancellable();
    std::string result;
    std::thread beside = CallBeside(result, token);
    clock.AwaitWaiters(1);
    token.Cancel();
    clock.Advance(250ms - Duration(1));
    EXPECT_EQ(clock.Waits().size(), 1u);
    clock.Advance(Duration(1));
    beside.join();
    EXPECT_EQ(result, "Operation cancelled.");
    searcher->MarkSuccess();
    EXPECT_EQ(failed->Changes(), (Lines{"removed l"}));
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ACancelledCallThatNeedNotWaitIsNotStopped) {
    finder->Set({"l"}, {});
    Run();
    const Token token = Cancellation::CreateCancellable();
    token.Cancel();
    EXPECT_EQ(Next(NewCall(), token), "l local");
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AWaitingCallTakesAFailedSearchOverAtOnce) {
    finder->Set({"l"}, {"r"});
    CallPtr searcher = NewCall();
    EXPECT_EQ(Next(searcher), "l local");
    std::string result;
    std::thread beside = CallBeside(result);
    clock.AwaitWaiters(1);
    searcher.reset();
    beside.join();
    EXPECT_EQ(result, "r remote");
    EXPECT_EQ(clock.Waits().size(), 1u);
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AWaitingCallTakesASearchOverThatThrew) {
    finder->Set({"l"}, {});
    std::atomic<bool> first{true};
    finder->OnFind([&] {
        if (!first.exchange(false)) return;
        clock.AwaitWaiters(1);
        throw 42;
    });
    std::thread searcher([&] { EXPECT_THROW(Next(NewCall()), int); });
    while (first)
        std::this_thread::yield();
    std::string result;
    std::thread beside = CallBeside(result);
    searcher.join();
    beside.join();
    EXPECT_EQ(result, "l local");
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ASearcherThatLostItsTurnUsesWhatTheOtherEstablished) {
    finder->Set({"l"}, {"r"});
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call), Next(call)}), (Lines{"l local", "r remote", "none"}));
    failed->Forget("l");
    std::string result;
    CallBeside(result).join();
    EXPECT_EQ(result, "l local");
    EXPECT_EQ(Next(call), "l local");  // its failure is forgotten: another chance in this call
    EXPECT_EQ(Next(call), "none");
    failed->Forget("l");
    EXPECT_EQ(Next(call), "none");  // one chance and no more
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest,
       ACallWithinACallOfTheSearchingThreadBorrowsItsServerWithoutWaiting) {
    finder->Set({"l"}, {"r"});
    const CallPtr outer = NewCall();
    EXPECT_EQ(Next(outer), "l local");
    {
        const CallPtr inner = NewCall();
        EXPECT_EQ((Lines{Next(inner), Next(inner)}), (Lines{"l local", "none"}));
    }
    EXPECT_TRUE(clock.Waits().empty());
    EXPECT_EQ(finder->Calls(), 1u);
    // The search is still the outer call's: others wait.
    std::string result;
    std::thread beside = CallBeside(result);
    clock.AwaitWaiters(1);
    outer->MarkSuccess();
    beside.join();
    EXPECT_EQ(result, "l local");
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AServerEstablishedByACallWithinACallStaysWhenTheOuterOneFails) {
    finder->Set({"l"}, {"r"});
    CallPtr outer = NewCall();
    EXPECT_EQ(Next(outer), "l local");
    EXPECT_EQ(Run(), "l local");
    outer.reset();
    EXPECT_EQ(failed->Changes(), (Lines{"removed l", "failed l local"}));
    EXPECT_EQ(Run(), "l local");
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest,
       AServerEstablishedByACallWithinACallStaysWhenTheOuterOneSucceeds) {
    finder->Set({"l"}, {"r"});
    const CallPtr outer = NewCall();
    EXPECT_EQ(Next(outer), "l local");
    EXPECT_EQ(Run(), "l local");
    outer->MarkSuccess();
    EXPECT_EQ(failed->Changes(), (Lines{"removed l", "removed l"}));
    EXPECT_EQ(Run(), "l local");
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, AMemoryThatThrowsAtACallWithinACallLeavesTheSearchToTheOuterOne) {
    finder->Set({"l"}, {"r"});
    const CallPtr outer = NewCall();
    EXPECT_EQ(Next(outer), "l local");
    failed->FailRecording(std::make_exception_ptr(std::bad_alloc()));
    {
        const CallPtr inner = NewCall();
        EXPECT_EQ(Next(inner), "l local");
        EXPECT_THROW(Next(inner), std::bad_alloc);
    }
    // Another search would have begun at once.
    std::string result;
    std::thread beside = CallBeside(result);
    clock.AwaitWaiters(1);
    outer->MarkSuccess();
    beside.join();
    EXPECT_EQ(result, "l local");
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IndefinitelyStickyIteratePolicyTest, ThreadsInOneExecutorSearchOneAfterTheOtherAndThenStay) {
    ServiceIteratePolicyFactory policies(failed, nullptr);
    finder->Set({"l"}, {"r"});
    const auto executor = policies.CreateIndefinitelySticky()->CreateExecutor(finder);
    std::atomic<int> remote{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 50; ++n) {
                const auto response = executor->Execute(
                    CreateServiceRequest("GET", "/", "1"), Token(), [&](auto, bool isLocal, Token) {
                        if (!isLocal) ++remote;
                        return std::static_pointer_cast<IStringServiceResponse>(
                            std::make_shared<PlainResponse>(isLocal ? 503 : 200, ""));
                    });
                EXPECT_EQ(response->GetStatusCode(), 200);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(remote, 200);
    // The first search fails on "l"; its own thread or one of the others goes on from there.
    EXPECT_LE(finder->Calls(), 2u);
    EXPECT_EQ(failed->Changes().front(), "failed l local");
}

}  // namespace
}  // namespace Ombry::Tests
