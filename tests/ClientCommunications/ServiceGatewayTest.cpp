#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/EmptyAuthenticator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/ServiceFinderByUrl.h"
#include "ClientCommunications/Impl/ServiceGateway.h"
#include "ClientCommunications/Impl/ServiceGatewayFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeFailedServices.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/FakeServiceFinder.h"
#include "tests/Fakes/HeadersOf.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;
using Headers = std::map<std::string, std::string>;

/// One scripted gateway for all servers; keeps the ids that gateways were asked for.
class OneGateway : public IHttpClientServiceGatewayFactory {
public:
    std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IService> service) override {
        ids.push_back(service->GetId());
        return gateway;
    }

    std::shared_ptr<ScriptedGateway> gateway = std::make_shared<ScriptedGateway>();
    Lines ids;
};

/// Puts "Authorization" on requests: "usual N", then "fresh N"; refuses a fresh one if told to.
class CountingAuthenticator : public IAuthenticator {
public:
    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                           Token token) override {
        calls.push_back("usual " + service->GetId());
        tokens.push_back(std::move(token));
        seen.push_back(HeadersOf(*request));
        if (fail) throw std::runtime_error("no credentials");
        request->SetHeader("Authorization", "usual " + std::to_string(++usual));
    }
    bool AddFreshAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                                Token token) override {
        calls.push_back("fresh " + service->GetId());
        tokens.push_back(std::move(token));
        seen.push_back(HeadersOf(*request));
        if (failFresh) throw std::runtime_error("no fresh credentials");
        if (hasFresh) request->SetHeader("Authorization", "fresh " + std::to_string(++fresh));
        return hasFresh;
    }

    bool hasFresh = true;
    bool fail = false;
    bool failFresh = false;
    int usual = 0;
    int fresh = 0;
    Lines calls;
    std::vector<Token> tokens;
    std::vector<Headers> seen;
};

class ServiceGatewayTest : public testing::Test {
protected:
    std::shared_ptr<IServiceGateway> Make() {
        const auto policy = ServiceIteratePolicyFactory(failed, nullptr).CreateIterateAfterMaxFailures(1);
        return ServiceGatewayFactory(http, authenticator, policy).Create(finder);
    }

    std::vector<ScriptedGateway::Call>& Calls() { return http->gateway->calls; }
    Headers RequestHeaders() const { return HeadersOf(*request); }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    FakeRandom random;
    Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    std::shared_ptr<FakeFailedServices> failed = std::make_shared<FakeFailedServices>();
    std::shared_ptr<OneGateway> http = std::make_shared<OneGateway>();
    std::shared_ptr<CountingAuthenticator> authenticator = std::make_shared<CountingAuthenticator>();
    std::shared_ptr<FakeServiceFinder> finder = std::make_shared<FakeServiceFinder>(Lines{"l"}, Lines{"r"});
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest("PUT", "/path", "1");
};

TEST_F(ServiceGatewayTest, AnAttemptCarriesTheHeadersOfItsServerAndOfItself) {
    http->gateway->Answer(200, "body");
    const auto response = Make()->CallForString(request, Token());
    ASSERT_TRUE(response);
    EXPECT_EQ(response->GetStatusCode(), 200);
    EXPECT_EQ(response->GetBody(), "body");
    ASSERT_EQ(Calls().size(), 1u);
    EXPECT_EQ(Calls()[0].method, "PUT");
    EXPECT_EQ(Calls()[0].path, "/path");
    EXPECT_FALSE(Calls()[0].streamed);
    EXPECT_EQ(Calls()[0].headers, (Headers{
                                      {"Authorization", "usual 1"},
                                      {"Contract-Version", "1"},
                                      {"SF-Destination-Service-Id", "l"},
                                      {"SF-Destination-Service-Is-Local-DC", "true"},
                                      {"SF-Destination-Service-Name", "name of l"},
                                      {"SF-Destination-Service-Namespace", "namespace of l"},
                                      {"SF-Request-Id", FakeRandom::GuidText(1)},
                                      {"SF-Root-Attempt", "1"},
                                  }));
    EXPECT_EQ(http->ids, (Lines{"l"}));
    EXPECT_EQ(authenticator->calls, (Lines{"usual l"}));
}

TEST_F(ServiceGatewayTest, AServerOfAnotherClassIsAskedForTheTextsOfItsHeaders) {
    http->gateway->Answer(200, "");
    RequestExecutionDelegate visit(request, *http, *authenticator, [&](const auto& gateway, Token token) {
        return gateway->CallForString(request, token);
    });
    visit(MakeService<ForeignService>("f"), false, Token());
    EXPECT_EQ(Calls()[0].headers["SF-Destination-Service-Id"], "f");
    EXPECT_EQ(Calls()[0].headers["SF-Destination-Service-Name"], "name of f");
    EXPECT_EQ(Calls()[0].headers["SF-Destination-Service-Namespace"], "namespace of f");
}

TEST_F(ServiceGatewayTest, AuthenticationComesBeforeTheHeadersOfTheServer) {
    http->gateway->Answer(200, "");
    Make()->CallForString(request, Token());
    EXPECT_EQ(authenticator->seen[0], (Headers{{"Contract-Version", "1"}}));
}

TEST_F(ServiceGatewayTest, AfterACallOnlyWhatTheAuthenticatorPutIsLeft) {
    http->gateway->Answer(200, "");
    Make()->CallForString(request, Token());
    EXPECT_EQ(RequestHeaders(), (Headers{{"Authorization", "usual 1"}, {"Contract-Version", "1"}}));
}

TEST_F(ServiceGatewayTest, AnAttemptThatThrowsLeavesTheSame) {
    http->gateway->Throw(std::runtime_error("pinned key differs"));
    try {
        Make()->CallForString(request, Token());
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "pinned key differs");
    }
    EXPECT_EQ(RequestHeaders(), (Headers{{"Authorization", "usual 1"}, {"Contract-Version", "1"}}));
}

TEST_F(ServiceGatewayTest, A401WithoutFreshCredentialsIsTheAnswerAfterOneAttempt) {
    authenticator->hasFresh = false;
    http->gateway->Answer(401, "no");
    EXPECT_EQ(Make()->CallForString(request, Token())->GetStatusCode(), 401);
    EXPECT_EQ(Calls().size(), 1u);
    EXPECT_EQ(authenticator->calls, (Lines{"usual l", "fresh l"}));
    EXPECT_EQ(failed->Changes(), (Lines{"removed l"}));
}

TEST_F(ServiceGatewayTest, ARefusalIsSentAgainOnceWithFreshCredentialsToTheSameServer) {
    for (const int status : {401, 403}) {
        SCOPED_TRACE(status);
        Calls().clear();
        authenticator->calls.clear();
        http->ids.clear();
        http->gateway->Answer(status, "");
        http->gateway->Answer(200, "second");
        EXPECT_EQ(Make()->CallForString(request, Token())->GetBody(), "second");
        ASSERT_EQ(Calls().size(), 2u);
        EXPECT_NE(Calls()[0].headers["SF-Request-Id"], Calls()[1].headers["SF-Request-Id"]);
        EXPECT_NE(Calls()[1].headers["SF-Request-Id"], "");
        EXPECT_EQ(Calls()[0].headers["SF-Root-Attempt"], "1");
        EXPECT_EQ(Calls()[1].headers["SF-Root-Attempt"], "2");
        EXPECT_EQ(Calls()[1].headers["SF-Destination-Service-Id"], "l");
        EXPECT_TRUE(Calls()[1].headers["Authorization"].starts_with("fresh"));
        EXPECT_EQ(http->ids, (Lines{"l"}));  // one gateway for both
        EXPECT_EQ(authenticator->calls, (Lines{"usual l", "fresh l"}));
        EXPECT_EQ(authenticator->seen.back().count("SF-Request-Id"), 0u);
        EXPECT_EQ(authenticator->seen.back()["SF-Destination-Service-Id"], "l");
    }
}

TEST_F(ServiceGatewayTest, TheSecondAnswerIsTheAnswerWhateverItSays) {
    http->gateway->Answer(401, "");
    http->gateway->Answer(403, "still no");
    EXPECT_EQ(Make()->CallForString(request, Token())->GetBody(), "still no");
    EXPECT_EQ(Calls().size(), 2u);
    EXPECT_EQ(authenticator->calls, (Lines{"usual l", "fresh l"}));
}

TEST_F(ServiceGatewayTest, OtherStatusesAskForNoFreshCredentials) {
    for (const int status : {200, 302, 400, 402, 404, 407, 409}) {
        SCOPED_TRACE(status);
        http->gateway->Answer(status, "");
        EXPECT_EQ(Make()->CallForString(request, Token())->GetStatusCode(), status);
        EXPECT_EQ(authenticator->calls.back(), "usual l");
    }
}

TEST_F(ServiceGatewayTest, OnASecondServerTheAttemptsAreCountedOn) {
    http->gateway->Answer(401, "");
    http->gateway->Answer(503, "");
    http->gateway->Answer(200, "");
    EXPECT_EQ(Make()->CallForString(request, Token())->GetStatusCode(), 200);
    ASSERT_EQ(Calls().size(), 3u);
    EXPECT_EQ(Calls()[1].headers["SF-Root-Attempt"], "2");
    EXPECT_EQ(Calls()[2].headers["SF-Root-Attempt"], "3");
    EXPECT_EQ(Calls()[2].headers["SF-Destination-Service-Id"], "r");
    EXPECT_EQ(Calls()[2].headers["SF-Destination-Service-Name"], "name of r");
    EXPECT_EQ(Calls()[2].headers["SF-Destination-Service-Namespace"], "namespace of r");
    EXPECT_EQ(Calls()[2].headers["SF-Destination-Service-Is-Local-DC"], "false");
    EXPECT_EQ(http->ids, (Lines{"l", "r"}));
    EXPECT_EQ(authenticator->calls, (Lines{"usual l", "fresh l", "usual r"}));
}

TEST_F(ServiceGatewayTest, TheLastServerThatAnsweredIsTheAnswerThoughARefusalCameAfterIt) {
    for (const bool streamed : {false, true}) {
        finder = std::make_shared<FakeServiceFinder>(Lines{"l"}, Lines{"r"});
        http->gateway->Answer(503, "of l");
        http->gateway->Answer(401, "of r");
        http->gateway->Throw(CommunicationsError("gone"));
        const auto gateway = Make();
        EXPECT_EQ(streamed ? gateway->CallForStream(request, nullptr, Token())->GetBody()
                           : gateway->CallForString(request, Token())->GetBody(),
                  "of l");
    }
}

TEST_F(ServiceGatewayTest, EachCallCountsItsAttemptsFromOne) {
    http->gateway->Answer(200, "");
    http->gateway->Answer(200, "");
    const auto gateway = Make();
    gateway->CallForString(request, Token());
    gateway->CallForString(request, Token());
    EXPECT_EQ(Calls()[1].headers["SF-Root-Attempt"], "1");
}

TEST_F(ServiceGatewayTest, RequestsOfTheServiceRequestFactoryKeepTheirAttemptAtOne) {
    request = ServiceRequestFactory("id", "client", "dc").Create("GET", "/", "1");
    http->gateway->Answer(503, "");
    http->gateway->Answer(200, "");
    Make()->CallForString(request, Token());
    EXPECT_EQ(Calls()[0].headers["SF-Root-Attempt"], "1");
    EXPECT_EQ(Calls()[1].headers["SF-Root-Attempt"], "1");
    EXPECT_EQ(RequestHeaders()["SF-Root-Attempt"], "1");
}

TEST_F(ServiceGatewayTest, HeadersThatTheCallerHasSetStay) {
    request->SetHeader("SF-Request-Id", "mine");
    request->SetHeader("SF-Destination-Service-Name", "chosen");
    http->gateway->Answer(503, "");
    http->gateway->Answer(200, "");
    Make()->CallForString(request, Token());
    for (auto& call : Calls()) {
        EXPECT_EQ(call.headers["SF-Request-Id"], "mine");
        EXPECT_EQ(call.headers["SF-Destination-Service-Name"], "chosen");
    }
    EXPECT_EQ(RequestHeaders()["SF-Request-Id"], "mine");
}

TEST_F(ServiceGatewayTest, AFailureOfTheTokenServiceIsChargedToTheTargetServer) {
    class Unreachable : public IAuthenticator {
    public:
        void AddAuthentication(std::shared_ptr<IServiceRequest>, std::shared_ptr<IService>, Token) override {
            throw CommunicationsError("token service down");
        }
    };
    const auto policy = ServiceIteratePolicyFactory(failed, nullptr).CreateIterateAfterMaxFailures(1);
    const auto gateway = ServiceGatewayFactory(http, std::make_shared<Unreachable>(), policy).Create(finder);
    EXPECT_THROW(gateway->CallForString(request, Token()), CommunicationsError);
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local", "failed r remote"}));
    EXPECT_TRUE(Calls().empty());
}

TEST_F(ServiceGatewayTest, AuthenticationThatFailsEndsTheCallBeforeAnythingIsSent) {
    authenticator->fail = true;
    EXPECT_THROW(Make()->CallForString(request, Token()), std::runtime_error);
    EXPECT_TRUE(http->ids.empty());
    EXPECT_EQ(RequestHeaders(), (Headers{{"Contract-Version", "1"}}));
}

TEST_F(ServiceGatewayTest, FreshAuthenticationThatFailsEndsTheCallAndCleansUp) {
    authenticator->failFresh = true;
    http->gateway->Answer(403, "");
    EXPECT_THROW(Make()->CallForString(request, Token()), std::runtime_error);
    EXPECT_EQ(RequestHeaders(), (Headers{{"Authorization", "usual 1"}, {"Contract-Version", "1"}}));
}

TEST_F(ServiceGatewayTest, OneTokenOfTheCallReachesAuthenticationAndAttempts) {
    http->gateway->Answer(401, "");
    http->gateway->Answer(200, "");
    const Token token = Cancellation::CreateCancellable();
    Make()->CallForString(request, token);
    token.Cancel();
    EXPECT_TRUE(Calls()[0].token.IsCancelled());
    EXPECT_TRUE(Calls()[1].token.IsCancelled());
    EXPECT_TRUE(authenticator->tokens[0].IsCancelled());
    EXPECT_TRUE(authenticator->tokens[1].IsCancelled());
}

TEST_F(ServiceGatewayTest, AStreamCallTakesTheSameRoad) {
    http->gateway->Answer(503, "");
    http->gateway->Answer(404, "page");
    std::string sink;
    const auto writer = std::make_shared<SyncStringWriter>(sink);
    const Token token = Cancellation::CreateCancellable();
    const auto response = Make()->CallForStream(request, writer, token);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->GetStatusCode(), 404);
    EXPECT_EQ(response->GetBody(), "page");
    ASSERT_EQ(Calls().size(), 2u);
    token.Cancel();
    for (const auto& call : Calls()) {
        EXPECT_TRUE(call.streamed);
        EXPECT_EQ(call.writer, writer);
        EXPECT_TRUE(call.token.IsCancelled());
    }
    EXPECT_EQ(RequestHeaders(), (Headers{{"Authorization", "usual 2"}, {"Contract-Version", "1"}}));
}

/// Answers every call with one response, without any attempt.
class FixedExecutor : public IServiceIteratePolicyExecutor {
public:
    explicit FixedExecutor(std::shared_ptr<IServiceResponse> response) : response(std::move(response)) {}
    std::shared_ptr<IServiceResponse> Execute(std::shared_ptr<IServiceRequest>, Token, Attempt) override {
        return response;
    }

private:
    std::shared_ptr<IServiceResponse> response;
};

class BareResponse : public IServiceResponse {
public:
    int GetStatusCode() const override { return 200; }
    std::shared_ptr<IService> GetService() const override { return nullptr; }
    bool HasHeader(const std::string&) const override { return false; }
    std::string GetHeader(const std::string&) const override { return {}; }
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)>) const override {}
};

TEST_F(ServiceGatewayTest, AResponseOfAnotherKindGivesNull) {
    ServiceGateway gateway(std::make_shared<FixedExecutor>(std::make_shared<BareResponse>()), http,
                           authenticator);
    EXPECT_EQ(gateway.CallForString(request, Token()), nullptr);
    EXPECT_EQ(gateway.CallForStream(request, nullptr, Token()), nullptr);
}

TEST_F(ServiceGatewayTest, AnEmptyCallFailsAtTheAttempt) {
    RequestExecutionDelegate delegate(request, *http, *authenticator, nullptr);
    try {
        delegate(MakeService("l"), true, Token());
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::bad_function_call& failure) {
        EXPECT_STREQ(failure.what(), "bad function call");
    }
    EXPECT_EQ(RequestHeaders().count("SF-Request-Id"), 0u);
}

class CountingPolicy : public IServiceIteratePolicy {
public:
    std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) override {
        finders.push_back(std::move(finder));
        return std::make_shared<FixedExecutor>(std::make_shared<BareResponse>());
    }

    std::vector<std::shared_ptr<IServiceFinder>> finders;
};

TEST_F(ServiceGatewayTest, TheFactoryUsesItsPolicyUnlessAnotherIsGiven) {
    const auto usual = std::make_shared<CountingPolicy>();
    const auto other = std::make_shared<CountingPolicy>();
    ServiceGatewayFactory factory(http, authenticator, usual);
    EXPECT_TRUE(factory.Create(finder));
    EXPECT_EQ(usual->finders, (std::vector<std::shared_ptr<IServiceFinder>>{finder}));
    EXPECT_TRUE(factory.Create(finder, other));
    EXPECT_EQ(usual->finders.size(), 1u);
    EXPECT_EQ(other->finders, (std::vector<std::shared_ptr<IServiceFinder>>{finder}));
}

TEST_F(ServiceGatewayTest, AServerThatStaysAwayIsRetriedWithGrowingDelaysUntilTheOverallLimit) {
    const auto memory = std::make_shared<FailedServices>(
        std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), 30min);
    const auto policy = ServiceIteratePolicyFactory(memory, nullptr).CreateIterateAfterMaxFailures(100);
    const auto gateway = ServiceGatewayFactory(http, std::make_shared<EmptyAuthenticator>(), policy)
                             .Create(std::make_shared<ServiceFinderByUrl>("https://there"));
    const TimePoint start = clock.Now();
    std::vector<Duration> passed;
    http->gateway->onCall = [&] { passed.push_back(clock.Now() - start); };
    for (int i = 0; i < 20; ++i)
        http->gateway->Throw(CommunicationsError("refused"));
    EXPECT_THROW(gateway->CallForString(request, Token()), Cancellation::TimeoutException);
    EXPECT_EQ(passed, (std::vector<Duration>{0s, 1s, 3s, 7s, 15s, 31s, 61s, 91s, 121s, 151s, 181s, 211s, 241s,
                                             271s}));
    EXPECT_EQ(clock.Now() - start, Duration(300s));
}

}  // namespace
}  // namespace Ombry::Tests
