#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/NextCandidateSelector.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeFailedServices.h"
#include "tests/Fakes/FakeService.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;

class NextCandidateSelectorTest : public testing::Test {
protected:
    FailureInfo Failed(Duration due, int count = 1, bool isLocal = true) {
        return {true, isLocal, clock.Now() + due, count};
    }

    /// The ids of the candidates until none is left, each with "local" or "remote".
    std::vector<std::string> DrainAll() {
        std::vector<std::string> order;
        while (true) {
            const ServiceCandidate candidate = selector.Next(Token());
            if (!candidate.service) return order;
            order.push_back(candidate.service->GetId() + (candidate.isLocal ? " local" : " remote"));
        }
    }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::shared_ptr<FakeFailedServices> failed = std::make_shared<FakeFailedServices>();
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    std::vector<TimePoint> sleeps;
    NextCandidateSelector selector{failed, logger,
                                   [this](TimePoint until, const Token&) { sleeps.push_back(until); }};
};

using Order = std::vector<std::string>;

TEST_F(NextCandidateSelectorTest, WithoutCandidatesNothingIsChosen) {
    const ServiceCandidate candidate = selector.Next(Token());
    EXPECT_FALSE(candidate.service);
    EXPECT_FALSE(candidate.isLocal);
}

TEST_F(NextCandidateSelectorTest, HealthyServersComeInTheirOrderLocalFirstEachOnce) {
    selector.SetCandidates(MakeServices({"l1", "l2"}), MakeServices({"r1", "r2"}));
    EXPECT_EQ(DrainAll(), (Order{"l1 local", "l2 local", "r1 remote", "r2 remote"}));
    EXPECT_EQ(failed->Changes(),
              (Order{"failed l1 local", "failed l2 local", "failed r1 remote", "failed r2 remote"}));
    EXPECT_TRUE(sleeps.empty());
}

TEST_F(NextCandidateSelectorTest, BorrowedCandidatesTakeThePlaceOfOthersAndStayWithTheirOwner) {
    const auto local = MakeServices({"l1", "l2"}), remote = MakeServices({"r"});
    selector.SetCandidates(MakeServices({"old"}), MakeServices({"older"}));
    selector.BorrowCandidates(&local, &remote);
    EXPECT_EQ(DrainAll(), (Order{"l1 local", "l2 local", "r remote"}));
    EXPECT_EQ(local.front().use_count(), 1) << "no copy was made";

    selector.SetCandidates(MakeServices({"a"}), MakeServices({"b"}));
    selector.BorrowCandidates(nullptr, nullptr);
    EXPECT_EQ(DrainAll(), Order());
    const auto untried = MakeServices({"untried"});
    selector.BorrowCandidates(&untried, &untried);
    selector.SetCandidates(MakeServices({"new"}), {});
    EXPECT_EQ(DrainAll(), (Order{"new local"}));
}

TEST_F(NextCandidateSelectorTest, ASingleCandidateTakesThePlaceOfListsUntilOthersTakeIts) {
    selector.SetCandidates(MakeServices({"l"}), MakeServices({"r"}));
    selector.SetCandidate({MakeService("one"), false});
    EXPECT_EQ(DrainAll(), (Order{"one remote"}));
    const auto local = MakeServices({"l1"});
    selector.BorrowCandidates(&local, nullptr);
    EXPECT_EQ(DrainAll(), (Order{"l1 local"}));
    selector.SetCandidate({MakeService("two"), true});
    selector.SetCandidates(MakeServices({"l2"}), {});
    EXPECT_EQ(DrainAll(), (Order{"l2 local"}));

    failed->Set("three", Failed(5s));
    selector.SetCandidate({MakeService("three"), true});
    EXPECT_EQ(DrainAll(), (Order{"three local"}));
    EXPECT_EQ(sleeps.size(), 1u);
}

TEST_F(NextCandidateSelectorTest, ServicesOfAnotherClassAreKnownByTheirIdsToo) {
    selector.SetCandidates({MakeService<ForeignService>("a")}, {MakeService<ForeignService>("a")});
    EXPECT_EQ(DrainAll(), (Order{"a local"}));
    EXPECT_EQ(failed->Changes(), (Order{"failed a local"}));
}

TEST_F(NextCandidateSelectorTest, WithNothingLeftFurtherCallsRecordNothing) {
    selector.SetCandidates(MakeServices({"a"}), {});
    DrainAll();
    EXPECT_FALSE(selector.Next(Token()).service);
    EXPECT_EQ(failed->Changes(), (Order{"failed a local"}));
}

TEST_F(NextCandidateSelectorTest, AHealthyRemoteServerBeatsAFailedLocalOneWithoutWaiting) {
    failed->Set("l", Failed(5s));
    selector.SetCandidates(MakeServices({"l"}), MakeServices({"r"}));
    const ServiceCandidate candidate = selector.Next(Token());
    EXPECT_EQ(candidate.service->GetId(), "r");
    EXPECT_FALSE(candidate.isLocal);
    EXPECT_TRUE(sleeps.empty());
    EXPECT_TRUE(logger->Messages().empty());
}

TEST_F(NextCandidateSelectorTest, AHealthyLocalServerBehindAFailedOneIsTaken) {
    failed->Set("l1", Failed(-1s));
    selector.SetCandidates(MakeServices({"l1", "l2"}), MakeServices({"r"}));
    EXPECT_EQ(selector.Next(Token()).service->GetId(), "l2");
}

TEST_F(NextCandidateSelectorTest, TwoServersWithOneIdCountAsOne) {
    selector.SetCandidates(MakeServices({"", ""}), {});
    EXPECT_EQ(DrainAll(), (Order{" local"}));
}

struct FallbackCase {
    const char* name;
    FailureInfo first;
    FailureInfo second;
    const char* chosen;
};

TEST_F(NextCandidateSelectorTest, AmongFailedServersTheBetterFallbackIsChosen) {
    const TimePoint now = clock.Now();
    const TimePoint early = now - Duration(2);
    const TimePoint late = now - Duration(1);
    const FallbackCase cases[] = {
        {"earlier wins", {true, true, late, 1}, {true, false, early, 9}, "b"},
        {"later loses", {true, false, early, 9}, {true, true, late, 1}, "a"},
        {"lower count wins", {true, true, late, 2}, {true, false, late, 1}, "b"},
        {"higher count loses", {true, false, late, 1}, {true, true, late, 2}, "a"},
        {"local beats remote", {true, false, late, 1}, {true, true, late, 1}, "b"},
        {"remote does not beat local", {true, true, late, 1}, {true, false, late, 1}, "a"},
        {"equal local ones: the first", {true, true, late, 1}, {true, true, late, 1}, "a"},
        {"equal remote ones: the first", {true, false, late, 1}, {true, false, late, 1}, "a"},
    };
    for (const FallbackCase& fallback : cases) {
        SCOPED_TRACE(fallback.name);
        const auto memory = std::make_shared<FakeFailedServices>();
        memory->Set("a", fallback.first);
        memory->Set("b", fallback.second);
        // Where the record says that the server stands decides, not the list in which it is found.
        for (const bool inOneList : {true, false}) {
            NextCandidateSelector choice(memory, nullptr, [](TimePoint, const Token&) {});
            if (inOneList) {
                choice.SetCandidates({}, MakeServices({"a", "b"}));
            } else {
                choice.SetCandidates(MakeServices({"a"}), MakeServices({"b"}));
            }
            EXPECT_EQ(choice.Next(Token()).service->GetId(), fallback.chosen);
        }
    }
}

TEST_F(NextCandidateSelectorTest, TheChosenFallbackSaysInWhichListItStood) {
    failed->Set("l", Failed(-1s, 1, true));
    failed->Set("r", Failed(-2s, 1, true));
    selector.SetCandidates(MakeServices({"l"}), MakeServices({"r"}));
    EXPECT_FALSE(selector.Next(Token()).isLocal);
    EXPECT_TRUE(selector.Next(Token()).isLocal);
}

TEST_F(NextCandidateSelectorTest, AServerThatIsNotDueIsWaitedFor) {
    failed->Set("a", Failed(Duration(12'345'678)));
    selector.SetCandidates(MakeServices({"a"}), {});
    EXPECT_EQ(selector.Next(Token()).service->GetId(), "a");
    EXPECT_EQ(sleeps, (std::vector<TimePoint>{clock.Now() + Duration(12'345'678)}));
    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].level, 1);
    EXPECT_EQ(entries[0].message,
              "Waiting 1234 milliseconds before trying to call https://a.example:8181 again.");
    EXPECT_EQ(entries[0].function, "Ombry::ClientCommunications::NextCandidateSelector::StartAttempt");
    EXPECT_EQ(entries[0].file, SourcePath("ClientCommunications/Impl/NextCandidateSelector.cpp"));
}

TEST_F(NextCandidateSelectorTest, AServerThatIsDueThisVeryTickIsNotWaitedFor) {
    failed->Set("a", Failed(Duration(0)));
    failed->Set("b", Failed(Duration(1)));
    selector.SetCandidates(MakeServices({"a", "b"}), {});
    selector.Next(Token());
    EXPECT_TRUE(sleeps.empty());
    selector.Next(Token());
    EXPECT_EQ(sleeps, (std::vector<TimePoint>{clock.Now() + Duration(1)}));
    EXPECT_EQ(logger->Messages(1),
              (Order{"Waiting 0 milliseconds before trying to call https://b.example:8181 again."}));
}

TEST_F(NextCandidateSelectorTest, AServerThatHasNotFailedIsNotWaitedForWhateverItsTime) {
    failed->Set("a", {false, true, clock.Now() + Duration(5s), 0});
    selector.SetCandidates(MakeServices({"a"}), {});
    EXPECT_EQ(selector.Next(Token()).service->GetId(), "a");
    EXPECT_TRUE(sleeps.empty());
}

TEST_F(NextCandidateSelectorTest, WithOnlyFailedServersTheOneDueFirstIsWaitedForAlsoWhenRemote) {
    failed->Set("l", Failed(3s));
    failed->Set("r", Failed(2s, 7, false));
    selector.SetCandidates(MakeServices({"l"}), MakeServices({"r"}));
    EXPECT_EQ(selector.Next(Token()).service->GetId(), "r");
    EXPECT_EQ(sleeps, (std::vector<TimePoint>{clock.Now() + Duration(2s)}));
}

TEST_F(NextCandidateSelectorTest, ACancelledTokenEndsTheWait) {
    failed->Set("a", Failed(30s));
    NextCandidateSelector waiting(failed, nullptr, Cancellation::SleepUntil);
    waiting.SetCandidates(MakeServices({"a"}), {});
    const Token token = Cancellation::CreateCancellable();
    clock.OnSleep([&] {
        if (clock.Sleeps().size() == 3) token.Cancel();
    });
    EXPECT_THROW(waiting.Next(token), Cancellation::OperationCancelledException);
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{250ms, 250ms, 250ms}));
}

TEST_F(NextCandidateSelectorTest, AnExpiredTokenEndsTheWaitWithATimeOut) {
    failed->Set("a", Failed(30s));
    NextCandidateSelector waiting(failed, nullptr, Cancellation::SleepUntil);
    waiting.SetCandidates(MakeServices({"a"}), {});
    EXPECT_THROW(waiting.Next(Cancellation::CreateTimeout(1s)), Cancellation::TimeoutException);
    EXPECT_EQ(clock.Sleeps().size(), 4u);
}

TEST_F(NextCandidateSelectorTest, AnEmptySleeperFailsOnlyWhenThereIsAWait) {
    NextCandidateSelector sleepless(failed, nullptr, nullptr);
    failed->Set("b", Failed(1s));
    sleepless.SetCandidates(MakeServices({"a", "b"}), {});
    EXPECT_EQ(sleepless.Next(Token()).service->GetId(), "a");
    try {
        sleepless.Next(Token());
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::bad_function_call& failure) {
        EXPECT_STREQ(failure.what(), "bad function call");
    }
}

TEST_F(NextCandidateSelectorTest, RetryCurrentRecordsTheFailureThenWaitsForTheSameServer) {
    const auto memory = std::make_shared<FailedServices>(
        std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), 30min);
    NextCandidateSelector retrying(
        memory, logger, [this](TimePoint until, const Token&) { clock.Advance(until - clock.Now()); });
    retrying.SetCandidates(MakeServices({"a"}), MakeServices({"b"}));
    EXPECT_EQ(retrying.Next(Token()).service->GetId(), "a");
    const TimePoint start = clock.Now();
    std::vector<Duration> passed;
    for (int i = 0; i < 7; ++i) {
        retrying.RetryCurrent(Token());
        passed.push_back(clock.Now() - start);
    }
    EXPECT_EQ(passed, (std::vector<Duration>{1s, 3s, 7s, 15s, 31s, 61s, 91s}));
    EXPECT_EQ(memory->Get("a").failureCount, 7);
    EXPECT_TRUE(memory->Get("a").isLocal);
    EXPECT_EQ(logger->Messages(1).back(),
              "Waiting 30000 milliseconds before trying to call https://a.example:8181 again.");
    retrying.MarkSuccess();  // it is still the current one
    EXPECT_FALSE(memory->Get("a").failed);
}

TEST_F(NextCandidateSelectorTest, RetryCurrentRecordsInWhichListTheServerStood) {
    selector.SetCandidates(MakeServices({"l"}), MakeServices({"r"}));
    for (int i = 0; i < 2; ++i) {
        selector.Next(Token());
        selector.RetryCurrent(Token());
    }
    EXPECT_EQ(failed->Changes(), (Order{"failed l local", "failed l local", "failed r remote"}));
}

TEST_F(NextCandidateSelectorTest, TheTokenOfEachAttemptGoesToItsWait) {
    std::vector<Token> tokens;
    NextCandidateSelector waiting(failed, nullptr,
                                  [&](TimePoint, const Token& token) { tokens.push_back(token); });
    failed->Set("a", Failed(30s));
    waiting.SetCandidates(MakeServices({"a"}), {});
    const Token first = Cancellation::CreateCancellable();
    const Token second = Cancellation::CreateCancellable();
    waiting.Next(first);
    waiting.RetryCurrent(second);
    ASSERT_EQ(tokens.size(), 2u);
    first.Cancel();
    EXPECT_TRUE(tokens[0].IsCancelled());
    EXPECT_FALSE(tokens[1].IsCancelled());
    second.Cancel();
    EXPECT_TRUE(tokens[1].IsCancelled());
}

TEST_F(NextCandidateSelectorTest, MarkFailureKeepsTheServerOutOfThisCall) {
    selector.SetCandidates(MakeServices({"a"}), MakeServices({"b"}));
    selector.Next(Token());
    selector.MarkFailure();
    EXPECT_EQ(failed->Changes(), (Order{"failed a local"}));
    EXPECT_EQ(selector.Next(Token()).service->GetId(), "b");
    EXPECT_EQ(failed->Changes(), (Order{"failed a local"}));
    selector.MarkFailure();
    EXPECT_FALSE(selector.Next(Token()).service);
    EXPECT_EQ(failed->Changes(), (Order{"failed a local", "failed b remote"}));
}

TEST_F(NextCandidateSelectorTest, MarkSuccessForgetsTheFailureAndLeavesTheServerSelectable) {
    failed->Set("a", Failed(-1s));
    selector.SetCandidates(MakeServices({"a"}), {});
    selector.Next(Token());
    selector.MarkSuccess();
    EXPECT_EQ(failed->Changes(), (Order{"removed a"}));
    EXPECT_EQ(selector.Next(Token()).service->GetId(), "a");
}

TEST_F(NextCandidateSelectorTest, OperationsOnTheCurrentCandidateWantOne) {
    const std::string expected = "NextCandidateSelector::verifyHaveCurrentCandidate: No candidate selected.";
    const auto messageOf = [](const std::function<void()>& operation) -> std::string {
        try {
            operation();
        } catch (const std::logic_error& failure) {
            return failure.what();
        }
        return "nothing thrown";
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(messageOf([&] { selector.MarkSuccess(); }), expected);
        EXPECT_EQ(messageOf([&] { selector.MarkFailure(); }), expected);
        EXPECT_EQ(messageOf([&] { selector.RetryCurrent(Token()); }), expected);
        selector.SetCandidates(MakeServices({"a"}), {});
        selector.Next(Token());
        selector.MarkSuccess();  // the second round: none any more
        failed->ClearChanges();
    }
    EXPECT_TRUE(failed->Changes().empty());
}

TEST_F(NextCandidateSelectorTest, ForgetPassedFailuresGivesOnlyForgottenServersAnotherChance) {
    selector.SetCandidates(MakeServices({"a", "b"}), {});
    EXPECT_EQ(DrainAll(), (Order{"a local", "b local"}));
    failed->Forget("b");
    EXPECT_FALSE(selector.Next(Token()).service);
    selector.ForgetPassedFailures();
    EXPECT_EQ(DrainAll(), (Order{"b local"}));
}

TEST_F(NextCandidateSelectorTest, NewCandidatesReplaceBothListsAndKeepWhatWasTried) {
    selector.SetCandidates(MakeServices({"a"}), MakeServices({"b"}));
    selector.Next(Token());
    selector.SetCandidates(MakeServices({"c"}), MakeServices({"a"}));
    EXPECT_EQ(DrainAll(), (Order{"c local"}));
}

}  // namespace
}  // namespace Ombry::Tests
