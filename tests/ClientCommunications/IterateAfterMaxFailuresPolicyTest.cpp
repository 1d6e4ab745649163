#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/ICandidateServiceFinder.h"
#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicyCandidateFinderFactory.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeFailedServices.h"
#include "tests/Fakes/FakeServiceFinder.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;

class IterateAfterMaxFailuresPolicyTest : public testing::Test {
protected:
    using CallPtr = std::unique_ptr<ICandidateServiceFinder>;

    void UsePolicy(int maxFailures, std::shared_ptr<IFailedServices> memory = nullptr) {
        shared = std::make_shared<IterateAfterMaxFailuresPolicyCandidateFinderFactory>(
            memory ? memory : failed, nullptr, maxFailures);
    }

    CallPtr NewCall() { return shared->Create(finder); }

    static std::string Next(const CallPtr& call, const Token& token = Token()) {
        const ServiceCandidate candidate = call->GetNextCandidate(token);
        if (!candidate.service) return "none";
        return candidate.service->GetId() + (candidate.isLocal ? " local" : " remote");
    }

    /// A whole call: its candidates fail until the last of `failures + 1`, which answers.
    Lines Run(int failures = 0) {
        const CallPtr call = NewCall();
        Lines order{Next(call)};
        for (int i = 0; i < failures; ++i)
            order.push_back(Next(call));
        call->MarkSuccess();
        return order;
    }

    /// Calls that sit on the remote server "r", since the local "l" has failed before.
    void SucceedRemotely(int calls) {
        finder->Set({"l"}, {"r"});
        failed->Set("l", {true, true, clock.Now(), 1});
        Repeat(calls, "r remote");
    }

    /// Calls of which the one remote server in use answers each at once.
    void Repeat(int calls, const std::string& server) {
        for (int i = 0; i < calls; ++i)
            ASSERT_EQ(Run(), (Lines{server})) << "call " << i;
    }

    /// A failure after which the server is due in half a minute.
    void MakeWait(const std::string& server) {
        failed->Set(server, {true, true, clock.Now() + Duration(30s), 1});
    }

    /// The call waits no longer than its own limit of a second.
    void ExpectTimeOut(const CallPtr& call) {
        const TimePoint start = clock.Now();
        EXPECT_THROW(Next(call, Cancellation::CreateTimeout(1s)), Cancellation::TimeoutException);
        EXPECT_EQ(clock.Now() - start, Duration(1s));
    }

    std::shared_ptr<FailedServices> RealMemory() {
        return std::make_shared<FailedServices>(
            std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), 30min);
    }

    /// Calls between two tries at home: the first leaves a count of one, and its own call adds another.
    static constexpr int CallsBetweenTries = 48;

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::shared_ptr<FakeFailedServices> failed = std::make_shared<FakeFailedServices>();
    std::shared_ptr<FakeServiceFinder> finder = std::make_shared<FakeServiceFinder>();
    std::shared_ptr<IterateAfterMaxFailuresPolicyCandidateFinderFactory> shared;
};

// The rows of the state table.

TEST_F(IterateAfterMaxFailuresPolicyTest, NoCurrentServerAndAFirstCallSelectsOne) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(finder->Calls(), 1u);
    EXPECT_EQ(failed->Changes(), (Lines{"removed l"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, UnprovenAndBelowMaxFailuresTheSameServerIsTriedAgainAfterItsDelay) {
    const auto memory = RealMemory();
    UsePolicy(4, memory);
    finder->Set({"l"}, {"r"});
    const CallPtr call = NewCall();
    const TimePoint start = clock.Now();
    Lines order;
    std::vector<Duration> passed;
    for (int i = 0; i < 5; ++i) {
        order.push_back(Next(call));
        passed.push_back(clock.Now() - start);
    }
    EXPECT_EQ(order, (Lines{"l local", "l local", "l local", "l local", "r remote"}));
    EXPECT_EQ(passed, (std::vector<Duration>{0s, 1s, 3s, 7s, 7s}));
    EXPECT_EQ(memory->Get("l").failureCount, 4);
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, UnprovenAndAtMaxFailuresAnotherServerIsSelected) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local", "removed r"}));
    EXPECT_EQ(finder->Calls(), 1u);  // the lists are loaded once a call
    EXPECT_EQ(Run(), (Lines{"r remote"}));
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ASuccessProvesTheServerAndClearsItsFailures) {
    UsePolicy(3);
    finder->Set({"l"}, {"r"});
    EXPECT_EQ(Run(2), (Lines{"l local", "l local", "l local"}));
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call), Next(call), Next(call)}),
              (Lines{"l local", "l local", "l local", "r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AFailureOfAProvenServerMakesItUnproven) {
    UsePolicy(1);
    SucceedRemotely(50);
    {
        const CallPtr call = NewCall();
        EXPECT_EQ(Next(call), "l local");   // the try at home
        EXPECT_EQ(Next(call), "r remote");  // that failed; so does this, when the call goes
    }
    // No way home now: the server in use is not proven, and has had its failure.
    failed->Forget("r");
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "r remote");
    call->MarkSuccess();
    EXPECT_EQ(Run(), (Lines{"r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AfterFiftySuccessesOnARemoteServerOneTryAtHomeMovesThereOnSuccess) {
    UsePolicy(1);
    SucceedRemotely(50);
    EXPECT_EQ(finder->Calls(), 1u);
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(finder->Calls(), 2u);
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AfterFortyNineSuccessesTheRemoteServerStays) {
    UsePolicy(1);
    SucceedRemotely(49);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "r remote");
    EXPECT_EQ(finder->Calls(), 1u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AFailureStartsTheCountOfSuccessesAgain) {
    UsePolicy(2);
    SucceedRemotely(49);
    EXPECT_EQ(Run(1), (Lines{"r remote", "r remote"}));  // one success since
    SucceedRemotely(49);
    EXPECT_EQ(Run(), (Lines{"l local"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, FiftySuccessesOnALocalServerChangeNothing) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    for (int i = 0; i < 60; ++i)
        ASSERT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(finder->Calls(), 1u);
}

// The way home.

TEST_F(IterateAfterMaxFailuresPolicyTest, AFailedTryAtHomeGoesBackToTheRemoteServerInTheSameCall) {
    UsePolicy(1);
    SucceedRemotely(50);
    failed->ClearChanges();
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local", "removed r"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest,
       AfterAFailedTryAtHomeTheNextComesWhenFiftySuccessesAreReachedAgain) {
    UsePolicy(1);
    SucceedRemotely(50);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
        Repeat(CallsBetweenTries, "r remote");
    }
    EXPECT_EQ(finder->Calls(), 4u);  // an alternate at its limit is looked for anew
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(Run(), (Lines{"l local"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ATryAtHomeThatFailsLeavesTheRemoteServerProven) {
    UsePolicy(3);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    // An unproven server would be no reason to leave "l" after one failure of three.
    EXPECT_EQ(Next(call), "r remote");
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AnAlternateBelowItsLimitIsUsedWithoutASearch) {
    UsePolicy(2);
    SucceedRemotely(50);
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    EXPECT_EQ(finder->Calls(), 2u);
    finder->Set({"other"}, {});
    Repeat(CallsBetweenTries, "r remote");
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    EXPECT_EQ(finder->Calls(), 2u);
    Repeat(CallsBetweenTries, "r remote");
    EXPECT_EQ(Run(), (Lines{"other local"}));  // two failures: at the limit
    EXPECT_EQ(finder->Calls(), 3u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AnAlternateThatAnsweredIsForgottenAsSuch) {
    UsePolicy(2);
    SucceedRemotely(50);
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    Repeat(CallsBetweenTries, "r remote");
    EXPECT_EQ(Run(), (Lines{"l local"}));  // home
    EXPECT_EQ(Run(2), (Lines{"l local", "l local", "r remote"}));
    SucceedRemotely(49);
    finder->Set({"other"}, {});
    EXPECT_EQ(Run(), (Lines{"other local"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, EvenALocalServerThatHasToBeWaitedForIsTried) {
    UsePolicy(1);
    SucceedRemotely(50);
    failed->Set("l", {true, true, clock.Now() + Duration(1s), 1});
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{250ms, 250ms, 250ms, 250ms}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ALocalServerThatIsNeverDueInTimeIsWaitedForOnceInFiftyCalls) {
    UsePolicy(1);
    SucceedRemotely(50);
    for (int i = 0; i < 2; ++i) {
        MakeWait("l");
        ExpectTimeOut(NewCall());
        const TimePoint waited = clock.Now();
        Repeat(CallsBetweenTries + 1, "r remote");  // the call that waited had no success
        EXPECT_EQ(clock.Now(), waited);
    }
}

TEST_F(IterateAfterMaxFailuresPolicyTest, WithoutALocalServerTheRemoteOneStaysAndOneCallInFiftyLooksForOne) {
    UsePolicy(1);
    finder->Set({}, {"r"});
    for (int i = 0; i < 50; ++i)
        Run();
    for (std::size_t searches = 2; searches <= 4; ++searches) {
        EXPECT_EQ(Run(), (Lines{"r remote"}));
        EXPECT_EQ(finder->Calls(), searches);
        Repeat(CallsBetweenTries, "r remote");
        EXPECT_EQ(finder->Calls(), searches);
    }
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AServerThatASuccessPutsBackInUseCountsFromThatSuccess) {
    UsePolicy(1);
    finder->Set({}, {"r", "x"});
    const CallPtr call = NewCall();
    const std::string server = Next(call);
    EXPECT_NE(Run(1), (Lines{server, server}));  // now the other one is in use
    call->MarkSuccess();
    finder->Set({"l"}, {});
    Repeat(49, server);
    EXPECT_EQ(Run(), (Lines{"l local"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ARemoteServerIsNoWayHome) {
    UsePolicy(1);
    finder->Set({}, {"r"});
    for (int i = 0; i < 50; ++i)
        Run();
    finder->Set({}, {"x", "y"});
    EXPECT_EQ(Run(), (Lines{"r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, WhenHomeAndTheRemoteServerFailOthersAreSelected) {
    UsePolicy(1);
    SucceedRemotely(50);
    finder->Set({"l"}, {"r", "s"});
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call), Next(call), Next(call)}),
              (Lines{"l local", "r remote", "s remote", "none"}));
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ATryAtHomeThatIsGivenUpCountsAgainstTheLocalServerAlone) {
    UsePolicy(1);
    SucceedRemotely(50);
    failed->ClearChanges();
    { EXPECT_EQ(Next(NewCall()), "l local"); }
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));
    Repeat(CallsBetweenTries + 1, "r remote");  // the call that was given up had no success
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, CallsThatReachFiftyTogetherEachTryHomeAndStartOneCountAnew) {
    UsePolicy(1);
    SucceedRemotely(50);
    const CallPtr first = NewCall();
    const CallPtr second = NewCall();
    EXPECT_EQ((Lines{Next(first), Next(second)}), (Lines{"l local", "l local"}));
    EXPECT_EQ(Next(first), "r remote");
    first->MarkSuccess();
    Repeat(10, "r remote");
    EXPECT_EQ(Next(second), "r remote");  // home has failed again: the ten do not count
    second->MarkSuccess();
    Repeat(CallsBetweenTries, "r remote");
    EXPECT_EQ(Run(), (Lines{"l local"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ATryAtHomeThatFailsDoesNotProveAServerThatHasFailedMeanwhile) {
    UsePolicy(3);
    SucceedRemotely(50);
    const CallPtr atHome = NewCall();
    EXPECT_EQ(Next(atHome), "l local");
    {
        const CallPtr beside = NewCall();
        EXPECT_EQ((Lines{Next(beside), Next(beside)}), (Lines{"l local", "r remote"}));
    }  // "r" has failed once: unproven
    // So this call stays with its server until that has failed three times; twice it has.
    EXPECT_EQ((Lines{Next(atHome), Next(atHome)}), (Lines{"l local", "r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AHomeThatAnotherCallHasReachedStaysWhenThisCallsTryFails) {
    UsePolicy(1);
    SucceedRemotely(50);
    CallPtr failing = NewCall();
    EXPECT_EQ(Next(failing), "l local");
    EXPECT_EQ(Run(), (Lines{"l local"}));
    failing.reset();
    failed->Forget("l");
    Repeat(60, "l local");
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ASuccessAtHomeMovesThereThoughAnotherCallsTryHasFailedMeanwhile) {
    UsePolicy(1);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    call->MarkSuccess();
    EXPECT_EQ(Run(), (Lines{"l local"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, WithoutALocalServerAFailureIsTheRemoteServers) {
    UsePolicy(1);
    finder->Set({}, {"r"});
    for (int i = 0; i < 50; ++i)
        Run();
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"r remote", "none"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AServerThatWonAtHomeFailsAsTheOneInUse) {
    UsePolicy(1);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    call->MarkSuccess();
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AnAlternateThatThisCallHasTriedAlreadyIsForgottenAsSuch) {
    UsePolicy(3);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "r remote"}));
    // Meanwhile the others move to a server of their own and stay there.
    finder->Set({"l"}, {"s"});
    EXPECT_EQ(Run(3), (Lines{"r remote", "r remote", "r remote", "s remote"}));
    failed->Set("l", {true, true, clock.Now(), 1});
    Repeat(49, "s remote");
    const std::size_t searches = finder->Calls();
    EXPECT_EQ(Next(call), "s remote");
    EXPECT_EQ(finder->Calls(), searches);
    EXPECT_EQ(Next(call), "s remote");  // a failure on what was to be a way home: "s" stays proven
    Repeat(CallsBetweenTries + 1, "s remote");
    EXPECT_EQ(finder->Calls(), searches);
    EXPECT_EQ(Next(NewCall()), "l local");
    EXPECT_EQ(finder->Calls(), searches + 1);  // looked for anew
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AWayHomeFoundInACallThatHasFailedBeforeStartsWithoutFailures) {
    UsePolicy(2);
    finder->Set({}, {"r"});
    Run();
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "r remote");
    finder->Set({}, {"s"});
    EXPECT_EQ(Run(2), (Lines{"r remote", "r remote", "s remote"}));
    Repeat(49, "s remote");
    finder->Set({"l"}, {"s"});
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "s remote"}));
    const std::size_t searches = finder->Calls();
    Repeat(CallsBetweenTries + 1, "s remote");
    EXPECT_EQ(Next(NewCall()), "l local");
    EXPECT_EQ(finder->Calls(), searches);  // it has failed once, which is below the limit
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AnAlternateThatAnswersAsTheOneSelectedStaysTheWayHome) {
    UsePolicy(3);
    SucceedRemotely(50);
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    Repeat(CallsBetweenTries, "r remote");
    {
        const CallPtr call = NewCall();  // the second failure of "l" as the way home
        EXPECT_EQ((Lines{Next(call), Next(call), Next(call), Next(call), Next(call)}),
                  (Lines{"l local", "r remote", "r remote", "r remote", "none"}));
    }
    failed->Forget("l");
    EXPECT_EQ(Run(), (Lines{"l local"}));  // selected among all
    EXPECT_EQ(Run(3), (Lines{"l local", "l local", "l local", "r remote"}));
    SucceedRemotely(49);
    const std::size_t searches = finder->Calls();
    EXPECT_EQ(Next(NewCall()), "l local");
    EXPECT_EQ(finder->Calls(), searches);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AFailureOfAnEarlierWayHomeDoesNotCountAgainstTheOneFoundSince) {
    UsePolicy(1);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    finder->Set({"m"}, {"r"});
    Repeat(CallsBetweenTries, "r remote");
    const CallPtr beside = NewCall();
    EXPECT_EQ(Next(beside), "m local");
    EXPECT_EQ(Next(call), "r remote");  // "l" has failed
    const std::size_t searches = finder->Calls();
    Repeat(CallsBetweenTries + 1, "r remote");
    EXPECT_EQ(Next(NewCall()), "m local");
    EXPECT_EQ(finder->Calls(), searches);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AnAlternateOfAnotherCallStaysWhenThisOneSucceedsAtHome) {
    UsePolicy(1);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    finder->Set({"m"}, {});
    Repeat(CallsBetweenTries, "r remote");
    const CallPtr beside = NewCall();
    EXPECT_EQ(Next(beside), "m local");
    call->MarkSuccess();  // home, at "l"
    finder->Set({}, {"r"});
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    SucceedRemotely(49);
    EXPECT_EQ(Run(), (Lines{"m local"}));
}

// What calls share.

TEST_F(IterateAfterMaxFailuresPolicyTest, EachServerSelectedHasItsOwnFailures) {
    UsePolicy(2);
    finder->Set({"l"}, {"r"});
    const CallPtr call = NewCall();
    EXPECT_EQ((Lines{Next(call), Next(call), Next(call), Next(call), Next(call)}),
              (Lines{"l local", "l local", "r remote", "r remote", "none"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ASelectionStartsTheCountOfSuccessesAnewAlsoIfAnotherCallWasFaster) {
    UsePolicy(1);
    finder->Set({}, {"r"});
    bool first = true;
    finder->OnFind([&] {
        if (!std::exchange(first, false)) return;
        EXPECT_EQ(Run(), (Lines{"r remote"}));
    });
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(Run(), (Lines{"r remote"}));
    EXPECT_EQ(finder->Calls(), 2u);
    Run();
    EXPECT_EQ(finder->Calls(), 3u);  // the first search for a way home
}

TEST_F(IterateAfterMaxFailuresPolicyTest, FailuresOfACallCountInTheNext) {
    UsePolicy(2);
    finder->Set({"l"}, {"r"});
    { EXPECT_EQ(Next(NewCall()), "l local"); }
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AServerAtItsLimitIsNotTriedFirstByTheNextCall) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    { EXPECT_EQ(Next(NewCall()), "l local"); }
    EXPECT_EQ(Run(), (Lines{"r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, WithNothingLeftTheNextCallStartsFromTheBeginning) {
    UsePolicy(1);
    finder->Set({"l"}, {});
    {
        const CallPtr call = NewCall();
        EXPECT_EQ((Lines{Next(call), Next(call), Next(call)}), (Lines{"l local", "none", "none"}));
        EXPECT_EQ(finder->Calls(), 1u);
    }
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));  // a call without a candidate adds nothing
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, CallsSideBySideLevelTheirFailuresUp) {
    UsePolicy(3);
    finder->Set({"l"}, {"r"});
    const CallPtr first = NewCall();
    const CallPtr second = NewCall();
    EXPECT_EQ(Next(first), "l local");
    EXPECT_EQ(Next(second), "l local");
    EXPECT_EQ(Next(first), "l local");   // one failure
    EXPECT_EQ(Next(second), "l local");  // two, with that of the other
    EXPECT_EQ(Next(first), "r remote");  // three
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ACallThatHasSeenMoreFailuresRaisesTheSharedCount) {
    UsePolicy(4);
    finder->Set({"l"}, {"r"});
    const CallPtr first = NewCall();
    EXPECT_EQ((Lines{Next(first), Next(first), Next(first)}), (Lines{"l local", "l local", "l local"}));
    EXPECT_EQ(Run(), (Lines{"l local"}));  // clears the shared count, but not what the first has seen
    EXPECT_EQ(Next(first), "l local");     // its third failure: the shared count is three again
    const CallPtr last = NewCall();
    EXPECT_EQ((Lines{Next(last), Next(last)}), (Lines{"l local", "r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ACallTakesOverTheFailuresOfItsServerAndKeepsThem) {
    UsePolicy(3);
    finder->Set({"l"}, {"r"});
    { EXPECT_EQ(Next(NewCall()), "l local"); }  // one failure
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    EXPECT_EQ(Run(), (Lines{"l local"}));  // clears the shared count
    EXPECT_EQ((Lines{Next(call), Next(call)}), (Lines{"l local", "r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ASuccessOnAnotherServerMakesThatTheOneInUse) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    const CallPtr first = NewCall();
    EXPECT_EQ(Next(first), "l local");
    const CallPtr second = NewCall();
    EXPECT_EQ((Lines{Next(second), Next(second)}), (Lines{"l local", "r remote"}));
    first->MarkSuccess();
    EXPECT_EQ(Next(second), "l local");  // proven meanwhile, though it had its try in this call
    EXPECT_EQ(Run(), (Lines{"l local"}));
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AFailureOfAServerNoLongerInUseDoesNotTouchTheOneThatIs) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    CallPtr first = NewCall();
    CallPtr second = NewCall();
    EXPECT_EQ(Next(first), "l local");
    EXPECT_EQ((Lines{Next(second), Next(second)}), (Lines{"l local", "r remote"}));
    second->MarkSuccess();
    first.reset();  // a failure of "l"
    EXPECT_EQ(Run(), (Lines{"r remote"}));
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ACallCountsTheFailuresOfItsOwnServerWhileTheOthersMoveOn) {
    UsePolicy(1);
    finder->Set({"l"}, {"r"});
    const CallPtr first = NewCall();
    const CallPtr second = NewCall();
    EXPECT_EQ(Next(first), "l local");
    EXPECT_EQ((Lines{Next(second), Next(second)}), (Lines{"l local", "r remote"}));
    EXPECT_EQ(Next(first), "r remote");  // "l" has had its failure, though "r" has none
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ServersAreTheSameByTheirIdsThoughEverySearchMakesNewOnes) {
    UsePolicy(2);
    finder->Set({"l"}, {"r"});
    const CallPtr first = NewCall();
    const CallPtr second = NewCall();
    finder->OnFind([&] {
        finder->OnFind(nullptr);
        EXPECT_EQ(Next(second), "l local");
    });
    EXPECT_EQ(Next(first), "l local");   // selected anew, beside the second
    EXPECT_EQ(Next(second), "l local");  // one failure, also for the first
    EXPECT_EQ(Next(first), "r remote");  // two
}

TEST_F(IterateAfterMaxFailuresPolicyTest, MaxFailuresOfZeroSelectsAtEveryFailure) {
    UsePolicy(0);
    finder->Set({"l"}, {"r"});
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
}

// The end of a call, and failures on the way.

TEST_F(IterateAfterMaxFailuresPolicyTest, ACandidateLeftBehindCountsAsFailed) {
    UsePolicy(1);
    finder->Set({}, {"r"});
    { EXPECT_EQ(Next(NewCall()), "r remote"); }
    EXPECT_EQ(failed->Changes(), (Lines{"failed r remote"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AnEndedCallAddsNoFailure) {
    UsePolicy(1);
    finder->Set({"l"}, {});
    Run();
    NewCall().reset();
    EXPECT_EQ(failed->Changes(), (Lines{"removed l"}));
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ACallCancelledBeforeItsFirstServerWasDueCountsNothing) {
    UsePolicy(1);
    finder->Set({"l"}, {});
    failed->Set("l", {true, true, clock.Now() + Duration(30s), 1});
    EXPECT_THROW(Next(NewCall(), Cancellation::CreateTimeout(1s)), Cancellation::TimeoutException);
    EXPECT_TRUE(failed->Changes().empty());
    EXPECT_EQ(clock.Sleeps().size(), 4u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ACallCancelledInTheWaitForARetryCountsTheFailureTwice) {
    const auto memory = RealMemory();
    UsePolicy(5, memory);
    finder->Set({"l"}, {});
    {
        const CallPtr call = NewCall();
        EXPECT_EQ(Next(call), "l local");
        EXPECT_THROW(Next(call, Cancellation::CreateTimeout(500ms)), Cancellation::TimeoutException);
        EXPECT_EQ(memory->Get("l").failureCount, 1);
    }
    EXPECT_EQ(memory->Get("l").failureCount, 2);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ACallCancelledInTheWaitForAnotherServerCountsThatOneAsFailed) {
    const auto memory = RealMemory();
    UsePolicy(1, memory);
    finder->Set({"l"}, {"r"});
    memory->RecordFailure("r", false);
    memory->RecordFailure("r", false);
    {
        const CallPtr call = NewCall();
        EXPECT_EQ(Next(call), "l local");
        ExpectTimeOut(call);
        EXPECT_EQ(memory->Get("l").failureCount, 1);
        EXPECT_EQ(memory->Get("r").failureCount, 2);
    }
    EXPECT_EQ(memory->Get("l").failureCount, 1);
    EXPECT_EQ(memory->Get("r").failureCount, 3);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, ASearchThatFailsLeavesTheCallAbleToSearchAgain) {
    UsePolicy(1);
    finder->OnFind([] { throw CommunicationsError("down"); });
    const CallPtr call = NewCall();
    EXPECT_THROW(Next(call), CommunicationsError);
    finder->OnFind(nullptr);
    finder->Set({"l"}, {});
    EXPECT_EQ(Next(call), "l local");
    EXPECT_EQ(failed->Changes(), Lines{});
}

TEST_F(IterateAfterMaxFailuresPolicyTest,
       ASearchForAWayHomeThatFailsFailsTheRoundAndTheNextIsThatOfTheServerInUse) {
    UsePolicy(1);
    SucceedRemotely(50);
    failed->ClearChanges();
    finder->OnFind([] { throw CommunicationsError("down"); });
    const CallPtr call = NewCall();
    EXPECT_THROW(Next(call), CommunicationsError);
    EXPECT_EQ(Next(call), "r remote");
    call->MarkSuccess();
    EXPECT_EQ(failed->Changes(), (Lines{"removed r"}));
    Repeat(CallsBetweenTries, "r remote");
    EXPECT_THROW(Next(NewCall()), CommunicationsError);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, AMemoryThatThrowsDoesNotReplaceTheEndOfTheCall) {
    UsePolicy(1);
    finder->Set({"l"}, {});
    CallPtr call = NewCall();
    Next(call);
    failed->FailRecording(std::make_exception_ptr(std::bad_alloc()));
    call.reset();
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));
}

// Wherever a call waits or searches, its token ends that.

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenOfTheCallGoesToTheSearch) {
    UsePolicy(1);
    const Token token = Cancellation::CreateCancellable();
    Next(NewCall(), token);
    token.Cancel();
    EXPECT_TRUE(finder->Tokens().at(0).IsCancelled());
}

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenOfTheCallGoesToTheSearchForAWayHome) {
    UsePolicy(1);
    SucceedRemotely(50);
    const Token token = Cancellation::CreateCancellable();
    Next(NewCall(), token);
    token.Cancel();
    EXPECT_TRUE(finder->Tokens().at(1).IsCancelled());
}

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenEndsTheWaitForTheServerInUse) {
    UsePolicy(1);
    finder->Set({"l"}, {});
    Run();
    MakeWait("l");
    ExpectTimeOut(NewCall());
}

TEST_F(IterateAfterMaxFailuresPolicyTest,
       TheTokenEndsTheWaitForAnotherTryOfTheServerThatIsInUseSinceItsFirst) {
    UsePolicy(1);
    SucceedRemotely(50);
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    EXPECT_EQ(Run(), (Lines{"l local"}));  // home by now
    MakeWait("l");
    ExpectTimeOut(call);
    EXPECT_EQ(failed->Changes().back(), "failed l local");
}

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenEndsTheWaitForAnotherTryOfAnUnprovenServer) {
    UsePolicy(2);
    finder->Set({"l"}, {});
    const CallPtr call = NewCall();
    EXPECT_EQ(Next(call), "l local");
    MakeWait("l");
    ExpectTimeOut(call);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenEndsTheWaitForAWayHomeThatIsKnown) {
    UsePolicy(2);
    SucceedRemotely(50);
    EXPECT_EQ(Run(1), (Lines{"l local", "r remote"}));
    Repeat(CallsBetweenTries, "r remote");
    MakeWait("l");
    ExpectTimeOut(NewCall());
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenEndsTheWaitForAWayHomeThatWasFound) {
    UsePolicy(1);
    SucceedRemotely(50);
    MakeWait("l");
    ExpectTimeOut(NewCall());
    EXPECT_EQ(finder->Calls(), 2u);
}

TEST_F(IterateAfterMaxFailuresPolicyTest, TheTokenEndsTheWaitForAServerThatIsSelected) {
    UsePolicy(1);
    finder->Set({"l"}, {});
    MakeWait("l");
    ExpectTimeOut(NewCall());
}

}  // namespace
}  // namespace Ombry::Tests
