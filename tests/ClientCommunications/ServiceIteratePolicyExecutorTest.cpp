#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyExecutor.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeServiceFinder.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

#include <deque>
#include <new>
#include <stdexcept>
#include <utility>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;
using Response = std::shared_ptr<IServiceResponse>;

/// Candidates as scripted, then none; every operation leaves a line.
class ScriptedCandidates : public ICandidateServiceFinderFactory {
public:
    std::unique_ptr<ICandidateServiceFinder> Create(std::shared_ptr<IServiceFinder> finder) override {
        finders.push_back(std::move(finder));
        return std::make_unique<Finder>(*this);
    }

    void Give(const std::string& id, bool isLocal = true) {
        script.push_back([=] { return ServiceCandidate{MakeService(id), isLocal}; });
    }

    template <class Exception>
    void Throw(const Exception& exception) {
        script.push_back([=]() -> ServiceCandidate { throw exception; });
    }

    std::deque<std::function<ServiceCandidate()>> script;
    std::vector<std::shared_ptr<IServiceFinder>> finders;
    std::vector<Token> tokens;
    Lines lines;

private:
    class Finder : public ICandidateServiceFinder {
    public:
        explicit Finder(ScriptedCandidates& owner) : owner(owner) {}
        ~Finder() override { owner.lines.push_back("gone"); }

        ServiceCandidate GetNextCandidate(Token token) override {
            owner.lines.push_back("next");
            owner.tokens.push_back(std::move(token));
            if (owner.script.empty()) return {};
            const auto step = std::move(owner.script.front());
            owner.script.pop_front();
            return step();
        }
        void MarkSuccess() override { owner.lines.push_back("success"); }

    private:
        ScriptedCandidates& owner;
    };
};

Response ResponseWith(int status, std::map<std::string, std::string> headers = {}) {
    return std::static_pointer_cast<IStringServiceResponse>(
        std::make_shared<PlainResponse>(status, "", std::move(headers)));
}

class ServiceIteratePolicyExecutorTest : public testing::Test {
protected:
    Response Execute(IServiceIteratePolicyExecutor::Attempt attempt, Token token = Token()) {
        return executor.Execute(request, std::move(token), std::move(attempt));
    }

    /// One call whose only server gives that answer: whether the next server was asked for.
    bool MovesOn(Response response) {
        candidates->lines.clear();
        candidates->Give("a");
        EXPECT_EQ(Execute([&](auto, bool, Token) { return response; }), response);
        return candidates->lines == Lines{"next", "next", "gone"};
    }

    template <class Exception>
    std::string WhatOf(IServiceIteratePolicyExecutor::Attempt attempt, Token token = Token()) {
        try {
            Execute(std::move(attempt), std::move(token));
        } catch (const Exception& failure) {
            return failure.what();
        }
        return "nothing thrown";
    }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    std::shared_ptr<FakeServiceFinder> finder = std::make_shared<FakeServiceFinder>();
    std::shared_ptr<ScriptedCandidates> candidates = std::make_shared<ScriptedCandidates>();
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest("GET", "/", "1");
    ServiceIteratePolicyExecutor executor{finder, candidates, logger};
};

TEST_F(ServiceIteratePolicyExecutorTest, AnAnswerEndsTheCallAndIsMarkedASuccess) {
    candidates->Give("a", false);
    const Response response = ResponseWith(200);
    Lines attempts;
    EXPECT_EQ(Execute([&](std::shared_ptr<IService> service, bool isLocal, Token) {
                  attempts.push_back(service->GetId() + (isLocal ? " local" : " remote"));
                  return response;
              }),
              response);
    EXPECT_EQ(attempts, (Lines{"a remote"}));
    EXPECT_EQ(candidates->lines, (Lines{"next", "success", "gone"}));
    ASSERT_EQ(candidates->finders.size(), 1u);
    EXPECT_EQ(candidates->finders[0], finder);
    EXPECT_TRUE(logger->Messages().empty());
}

TEST_F(ServiceIteratePolicyExecutorTest, StatusesThatAnotherServerMayMendMoveOnAndAllOthersEndTheCall) {
    const std::set<int> moving{408, 410, 500, 501, 502, 503, 504, 507};
    for (int status = 100; status < 600; ++status) {
        SCOPED_TRACE(status);
        EXPECT_EQ(MovesOn(ResponseWith(status)), moving.contains(status));
    }
}

TEST_F(ServiceIteratePolicyExecutorTest, A404OfABareWebServerMovesOnAndTheServicesOwnEndsTheCall) {
    EXPECT_TRUE(MovesOn(ResponseWith(404, {{"Server", "Microsoft-IIS/10.0"}})));
    EXPECT_TRUE(MovesOn(ResponseWith(404, {{"Server", "Microsoft-IIS/"}})));
    for (const char* server : {"Microsoft-IIS", "microsoft-iis/10.0", " Microsoft-IIS/10.0", "", "nginx",
                               "x Microsoft-IIS/10.0", "Microsoft-HTTPAPI/2.0"}) {
        SCOPED_TRACE(server);
        EXPECT_FALSE(MovesOn(ResponseWith(404, {{"Server", server}})));
    }
    EXPECT_FALSE(MovesOn(ResponseWith(404)));
    EXPECT_FALSE(MovesOn(ResponseWith(404, {{"X-Server", "Microsoft-IIS/10.0"}})));
    EXPECT_FALSE(MovesOn(ResponseWith(403, {{"Server", "Microsoft-IIS/10.0"}})));
}

/// A 404 whose headers cannot be looked at, or cannot be given, for lack of memory.
class ResponseWithoutMemory : public PlainResponse {
public:
    explicit ResponseWithoutMemory(bool looks) : PlainResponse(404, ""), looks(looks) {}
    bool HasHeader(const std::string&) const override {
        if (!looks) throw std::bad_alloc();
        return true;
    }
    std::string GetHeader(const std::string&) const override { throw std::bad_alloc(); }

private:
    const bool looks;
};

TEST_F(ServiceIteratePolicyExecutorTest, A404ThatCannotBeLookedAtForLackOfMemoryFailsTheCall) {
    for (const bool looks : {false, true}) {
        SCOPED_TRACE(looks);
        candidates->lines.clear();
        candidates->Give("a");
        const Response response =
            std::static_pointer_cast<IStringServiceResponse>(std::make_shared<ResponseWithoutMemory>(looks));
        EXPECT_THROW(Execute([&](auto, bool, Token) { return response; }), std::bad_alloc);
        EXPECT_EQ(candidates->lines, (Lines{"next", "gone"}));
    }
}

TEST_F(ServiceIteratePolicyExecutorTest, ASecondServerAnswersForTheFirst) {
    candidates->Give("a");
    candidates->Give("b");
    const Response good = ResponseWith(200);
    EXPECT_EQ(Execute([&](auto service, bool, Token) {
                  return service->GetId() == "a" ? ResponseWith(503) : good;
              }),
              good);
    EXPECT_EQ(candidates->lines, (Lines{"next", "next", "success", "gone"}));
    EXPECT_TRUE(logger->Messages().empty());
}

TEST_F(ServiceIteratePolicyExecutorTest, WhenAllServersFailTheLastResponseIsReturned) {
    candidates->Give("a");
    candidates->Give("b");
    const Response last = ResponseWith(500);
    EXPECT_EQ(Execute([&](auto service, bool, Token) {
                  return service->GetId() == "a" ? ResponseWith(503) : last;
              }),
              last);
    EXPECT_EQ(candidates->lines, (Lines{"next", "next", "next", "gone"}));
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Failure from all servers.", "Returning last response from a server."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, AnEarlierResponseIsReturnedAlthoughALaterAttemptThrew) {
    candidates->Give("a");
    candidates->Give("b");
    const Response first = ResponseWith(503);
    EXPECT_EQ(Execute([&](auto service, bool, Token) {
                  if (service->GetId() == "b") throw CommunicationsError("refused");
                  return first;
              }),
              first);
    EXPECT_EQ(logger->Messages(1), (Lines{"Caught exception: refused", "Failure from all servers.",
                                          "Returning last response from a server."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, WithoutAnyResponseTheCallFails) {
    candidates->Give("a");
    candidates->Give("b");
    EXPECT_EQ(WhatOf<CommunicationsError>(
                  [](auto service, bool, Token) -> Response { throw CommunicationsError(service->GetId()); }),
              "No IServiceResponse from any servers.");
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: a", "Caught exception: b", "Failure from all servers.",
                     "Throwing exception since no server responded."}));
    EXPECT_EQ(logger->Messages().size(), 4u);
    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(ServiceIteratePolicyExecutorTest, EachLineBearsItsOwnPlaceInTheSource) {
    candidates->Give("a");
    WhatOf<CommunicationsError>(
        [](auto service, bool, Token) -> Response { throw CommunicationsError(service->GetId()); });

    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 3u);
    std::set<int> lines;
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.file, SourcePath("ClientCommunications/Impl/ServiceIteratePolicyExecutor.cpp"));
        EXPECT_EQ(entry.function, "Ombry::ClientCommunications::ServiceIteratePolicyExecutor::Execute");
        lines.insert(entry.line);
    }
    EXPECT_EQ(lines.size(), 3u);
}

TEST_F(ServiceIteratePolicyExecutorTest, WithoutAnyServerTheCallFails) {
    EXPECT_EQ(WhatOf<CommunicationsError>([](auto, bool, Token) { return ResponseWith(200); }),
              "No IServiceResponse from any servers.");
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Failure from all servers.", "Throwing exception since no server responded."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, NoRetriesMeanOneAttempt) {
    request->SetMaxRetries(0);
    candidates->Give("a");
    candidates->Give("b");
    const Response response = ResponseWith(503);
    EXPECT_EQ(Execute([&](auto, bool, Token) { return response; }), response);
    EXPECT_EQ(candidates->lines, (Lines{"next", "gone"}));
    EXPECT_EQ(logger->Messages(1),
              (Lines{"maxRetries was reached.", "Returning last response from a server."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, TwoRetriesMeanThreeAttempts) {
    request->SetMaxRetries(2);
    for (const char* id : {"a", "b", "c", "d"})
        candidates->Give(id);
    EXPECT_EQ(WhatOf<CommunicationsError>(
                  [](auto service, bool, Token) -> Response { throw CommunicationsError(service->GetId()); }),
              "No IServiceResponse from any servers.");
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: a", "Caught exception: b", "Caught exception: c",
                     "maxRetries was reached.", "Throwing exception since no server responded."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, TheNumberOfAttemptsIsUnsigned) {
    candidates->Give("a");
    EXPECT_TRUE(Execute([](auto, bool, Token) { return ResponseWith(200); }));  // 2147483647 + 1 of them
    request->SetMaxRetries(-1);
    candidates->lines.clear();
    candidates->Give("a");
    EXPECT_EQ(WhatOf<CommunicationsError>([](auto, bool, Token) { return ResponseWith(200); }),
              "No IServiceResponse from any servers.");
    EXPECT_EQ(candidates->lines, (Lines{"gone"}));
    EXPECT_EQ(logger->Messages(1).front(), "maxRetries was reached.");
}

TEST_F(ServiceIteratePolicyExecutorTest, ATimeOutOfTheSingleAttemptGoesOn) {
    candidates->Give("a");
    candidates->Give("b");
    candidates->Give("c");
    const Response good = ResponseWith(200);
    EXPECT_EQ(Execute([&](auto service, bool, Token) -> Response {
                  if (service->GetId() == "a") throw Cancellation::TimeoutException("Error 11.13");
                  if (service->GetId() == "b") throw Cancellation::OperationCancelledException();
                  return good;
              }),
              good);
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: Error 11.13", "Caught exception: Operation cancelled."}));
}

// Such as that of the search for servers, whose limit is shorter than that of the call.
TEST_F(ServiceIteratePolicyExecutorTest, ATimeOutOfTheSearchForTheNextServerGoesOn) {
    candidates->Throw(Cancellation::TimeoutException("late"));
    candidates->Give("a");
    const Response good = ResponseWith(200);
    EXPECT_EQ(Execute([&](auto, bool, Token) { return good; }), good);
    EXPECT_EQ(candidates->lines, (Lines{"next", "next", "success", "gone"}));
    EXPECT_EQ(logger->Messages(1), (Lines{"Caught exception: late"}));
}

TEST_F(ServiceIteratePolicyExecutorTest, ACancelledCallEndsWithTheTokensException) {
    candidates->Give("a");
    candidates->Give("b");
    const Token token = Cancellation::CreateCancellable();
    EXPECT_EQ(WhatOf<Cancellation::OperationCancelledException>(
                  [&](auto, bool, Token callToken) -> Response {
                      token.Cancel();
                      callToken.ThrowIfCancelled();
                      return nullptr;
                  },
                  token),
              "Operation cancelled.");
    EXPECT_EQ(candidates->lines, (Lines{"next", "gone"}));
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: Operation cancelled.", "Operation was cancelled."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, TheRequestsOwnLimitEndsTheCallToo) {
    request->SetOverallTimeout(10s);
    candidates->Give("a");
    EXPECT_EQ(WhatOf<Cancellation::TimeoutException>([&](auto, bool, Token callToken) -> Response {
                  clock.Advance(10s);
                  callToken.ThrowIfCancelled();
                  return nullptr;
              }),
              "Operation timed out.");
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: Operation timed out.", "Operation was cancelled."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, WhereTheRequestsLimitAndTheTokenFireTogetherTheLimitIsReported) {
    request->SetOverallTimeout(Duration(0));
    const Token token = Cancellation::CreateCancellable();
    token.Cancel();
    EXPECT_EQ(
        WhatOf<Cancellation::OperationCancelledException>([](auto, bool, Token) { return nullptr; }, token),
        "Operation timed out.");
}

TEST_F(ServiceIteratePolicyExecutorTest, ACancelledCallThatHasAResponseReturnsIt) {
    candidates->Give("a");
    const Token token = Cancellation::CreateCancellable();
    candidates->Throw(Cancellation::OperationCancelledException("cancelled in the wait"));
    const Response response = ResponseWith(503);
    EXPECT_EQ(Execute(
                  [&](auto, bool, Token) {
                      token.Cancel();
                      return response;
                  },
                  token),
              response);
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: cancelled in the wait", "Operation was cancelled.",
                     "Returning last response from a server."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, TheReasonOfCancellationComesBeforeThatOfRetries) {
    request->SetMaxRetries(0);
    candidates->Give("a");
    const Token token = Cancellation::CreateCancellable();
    EXPECT_EQ(WhatOf<Cancellation::OperationCancelledException>(
                  [&](auto, bool, Token) -> Response {
                      token.Cancel();
                      throw CommunicationsError("refused");
                  },
                  token),
              "Operation cancelled.");
    EXPECT_EQ(logger->Messages(1), (Lines{"Caught exception: refused", "Operation was cancelled."}));
}

TEST_F(ServiceIteratePolicyExecutorTest, OneTokenOfTheCallGoesToCandidatesAndAttempts) {
    const Token ofRequest = Cancellation::CreateCancellable();
    request->SetCancellationToken(ofRequest);
    candidates->Give("a");
    Token seen;
    Execute([&](auto, bool, Token callToken) {
        seen = callToken;
        return ResponseWith(200);
    });
    EXPECT_FALSE(seen.IsCancelled());
    ofRequest.Cancel();
    EXPECT_TRUE(seen.IsCancelled());
    EXPECT_TRUE(candidates->tokens.at(0).IsCancelled());
}

TEST_F(ServiceIteratePolicyExecutorTest, ExceptionsThatNoOtherServerCanMendPassThrough) {
    candidates->Give("a");
    candidates->Give("b");
    EXPECT_EQ(WhatOf<std::runtime_error>(
                  [](auto, bool, Token) -> Response { throw std::runtime_error("no server can help"); }),
              "no server can help");
    EXPECT_EQ(candidates->lines, (Lines{"next", "gone"}));
    EXPECT_TRUE(logger->Messages().empty());
}

TEST_F(ServiceIteratePolicyExecutorTest, WhileDiscoveryIsDownEachRoundPausesForOneSlice) {
    candidates->Throw(CommunicationsError("discovery down"));
    candidates->Throw(CommunicationsError("still down"));
    candidates->Give("a");
    const Response good = ResponseWith(200);
    EXPECT_EQ(Execute([&](auto, bool, Token) { return good; }), good);
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{250ms, 250ms}));
    EXPECT_EQ(logger->Messages(1),
              (Lines{"Caught exception: discovery down", "Caught exception: still down"}));
}

TEST_F(ServiceIteratePolicyExecutorTest, ASearchThatEndsAsCancelledOrLateWhileTheCallGoesOnPausesToo) {
    candidates->Throw(Cancellation::OperationCancelledException("a token of the finder's own"));
    candidates->Throw(Cancellation::TimeoutException("late"));
    candidates->Give("a");
    candidates->Give("b");
    const Response good = ResponseWith(200);
    EXPECT_EQ(Execute([&](auto service, bool, Token) -> Response {
                  if (service->GetId() == "a") throw Cancellation::TimeoutException("of the attempt");
                  return good;
              }),
              good);
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{250ms, 250ms})) << "none behind a server";
}

TEST_F(ServiceIteratePolicyExecutorTest, AClockThatIsSetBackDoesNotLengthenThePause) {
    candidates->Throw(CommunicationsError("down"));
    candidates->Give("a");
    bool isSetBack = false;
    clock.OnSleep([&] {
        if (!std::exchange(isSetBack, true)) clock.SetNow(clock.Now() - 1h);
    });
    EXPECT_TRUE(Execute([&](auto, bool, Token) { return ResponseWith(200); }));
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{250ms}));
}

TEST_F(ServiceIteratePolicyExecutorTest, AFailureToFindAnyServerCountsAsAnAttemptAndTheLastOneDoesNotPause) {
    request->SetMaxRetries(1);
    clock.OnSleep([this] { candidates->lines.push_back("pause"); });
    for (int i = 0; i < 3; ++i)
        candidates->Throw(CommunicationsError("down"));
    EXPECT_EQ(WhatOf<CommunicationsError>([](auto, bool, Token) { return ResponseWith(200); }),
              "No IServiceResponse from any servers.");
    EXPECT_EQ(clock.Sleeps(), (std::vector<Duration>{250ms}));
    EXPECT_EQ(candidates->lines, (Lines{"next", "pause", "next", "gone"}));
    const auto log = logger->Messages(1);
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], "maxRetries was reached.");
}

TEST_F(ServiceIteratePolicyExecutorTest, ACallCancelledInThePauseEnds) {
    request->SetOverallTimeout(1s);
    for (int i = 0; i < 10; ++i)
        candidates->Throw(CommunicationsError("down"));
    EXPECT_EQ(WhatOf<Cancellation::TimeoutException>([](auto, bool, Token) { return ResponseWith(200); }),
              "Operation timed out.");
    EXPECT_EQ(clock.Sleeps().size(), 4u);
    EXPECT_EQ(candidates->lines.size(), 6u);  // five times next, then gone
    EXPECT_EQ(logger->Messages(1).back(), "Operation was cancelled.");
}

TEST_F(ServiceIteratePolicyExecutorTest, OtherFailuresToFindAServerPassThroughWithoutAPause) {
    candidates->Throw(std::logic_error("broken"));
    EXPECT_EQ(WhatOf<std::logic_error>([](auto, bool, Token) { return ResponseWith(200); }), "broken");
    EXPECT_TRUE(clock.Sleeps().empty());
}

}  // namespace
}  // namespace Ombry::Tests
