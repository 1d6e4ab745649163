#include "ClientCommunications/Impl/BootstrapGateways.h"

#include "ClientCommunications/Impl/FixedTokenAuthenticator.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "tests/Fakes/ScriptedGateway.h"

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::map<std::string, std::string> HeadersOf(const IServiceRequest& request) {
    std::map<std::string, std::string> headers;
    request.ForEachHeader([&](const std::string& name, const std::string& value) { headers[name] = value; });
    return headers;
}

/// Notes the request, the service and the token that it is given.
class WatchingAuthenticator : public IAuthenticator {
public:
    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService>,
                           Cancellation::Token token) override {
        ++added;
        cancelled = token.IsCancelled();
        request->SetHeader("Authorization", "watched");
        if (fails) throw std::runtime_error("no credentials");
    }
    bool AddFreshAuthentication(std::shared_ptr<IServiceRequest>, std::shared_ptr<IService>,
                                Cancellation::Token) override {
        ++refreshed;
        return true;
    }
    int added = 0;
    int refreshed = 0;
    bool cancelled = false;
    bool fails = false;
};

TEST(BootstrapServiceRequestFactoryTest, RequestsCarryTheContractVersionAndNothingElse) {
    BootstrapServiceRequestFactory factory;
    const auto plain = factory.Create("GET", "/path", "7");
    const auto dropped = factory.Create("GET", "/path", "7", nullptr);
    for (const auto& request : {plain, dropped}) {
        EXPECT_EQ(request->GetMethod(), "GET");
        EXPECT_EQ(request->GetPath(), "/path");
        EXPECT_THAT(HeadersOf(*request), ElementsAre(Pair("Contract-Version", "7")));
        EXPECT_EQ(request->GetBodyReader(), nullptr);
    }
}

class AuthenticatingServiceGatewayTest : public testing::Test {
protected:
    const std::shared_ptr<WatchingAuthenticator> authenticator = std::make_shared<WatchingAuthenticator>();
    const std::shared_ptr<ScriptedGateway> inner = std::make_shared<ScriptedGateway>();
    AuthenticatingServiceGateway gateway{authenticator, inner};
    BootstrapServiceRequestFactory factory;
    Cancellation::Token token = Cancellation::CreateCancellable();
};

TEST_F(AuthenticatingServiceGatewayTest, EachKindOfCallIsAuthenticatedAndPassedOn) {
    token.Cancel();
    inner->Answer(200, "first");
    inner->Answer(201, "second");
    EXPECT_EQ(gateway.CallForString(factory.Create("GET", "/a", "1"), token)->GetBody(), "first");
    EXPECT_TRUE(authenticator->cancelled);
    authenticator->cancelled = false;
    std::string text;
    const auto writer = std::make_shared<SyncStringWriter>(text);
    EXPECT_EQ(gateway.CallForStream(factory.Create("GET", "/b", "1"), writer, token)->GetStatusCode(), 201);
    EXPECT_TRUE(authenticator->cancelled);

    ASSERT_EQ(inner->calls.size(), 2u);
    for (const ScriptedGateway::Call& call : inner->calls) {
        EXPECT_THAT(call.headers,
                    ElementsAre(Pair("Authorization", "watched"), Pair("Contract-Version", "1")));
        EXPECT_TRUE(call.token.IsCancelled());
    }
    EXPECT_FALSE(inner->calls[0].streamed);
    EXPECT_TRUE(inner->calls[1].streamed);
    EXPECT_EQ(inner->calls[1].writer, writer);
    EXPECT_EQ(authenticator->added, 2);
}

TEST_F(AuthenticatingServiceGatewayTest, ARefusalIsTheAnswerWithoutASecondTry) {
    inner->Answer(401, "refused");
    EXPECT_EQ(gateway.CallForString(factory.Create("GET", "/a", "1"), token)->GetStatusCode(), 401);
    EXPECT_EQ(inner->calls.size(), 1u);
    EXPECT_EQ(authenticator->refreshed, 0);
}

TEST_F(AuthenticatingServiceGatewayTest, WithoutCredentialsThereIsNoCall) {
    authenticator->fails = true;
    EXPECT_THROW(gateway.CallForString(factory.Create("GET", "/a", "1"), token), std::runtime_error);
    EXPECT_THROW(gateway.CallForStream(factory.Create("GET", "/a", "1"), nullptr, token), std::runtime_error);
    EXPECT_THAT(inner->calls, IsEmpty());
}

class NoncachingOAuth2AuthenticatorTest : public testing::Test {
protected:
    const std::shared_ptr<ScriptedGateway> tokenGateway = std::make_shared<ScriptedGateway>();
    NoncachingOAuth2Authenticator authenticator{
        nullptr, tokenGateway, std::make_shared<BootstrapServiceRequestFactory>(), "service", "/token/path"};
    const std::shared_ptr<IServiceRequest> request =
        BootstrapServiceRequestFactory().Create("GET", "/a", "1");
};

TEST_F(NoncachingOAuth2AuthenticatorTest, AsksForATokenAnewForEachRequest) {
    for (const std::string token : {"t1", "t2"}) {
        tokenGateway->Answer(200, R"({"access_token":")" + token + R"(","expires_in":3600})");
        authenticator.AddAuthentication(request, nullptr, Cancellation::Token());
        EXPECT_EQ(request->GetHeader("Authorization"), "Bearer " + token);
    }
    ASSERT_EQ(tokenGateway->calls.size(), 2u);
    EXPECT_EQ(tokenGateway->calls[0].method, "POST");
    EXPECT_EQ(tokenGateway->calls[0].path, "/token/path");
    EXPECT_EQ(tokenGateway->calls[0].body, "grant_type=client_credentials&servicename=service");
}

TEST_F(NoncachingOAuth2AuthenticatorTest, ARefusedTokenLeavesTheRequestAsItWas) {
    tokenGateway->Answer(401, "no");
    try {
        authenticator.AddAuthentication(request, nullptr, Cancellation::Token());
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "OAuth2 request failed with response code 401 and response body no");
    }
    EXPECT_THAT(HeadersOf(*request), ElementsAre(Pair("Contract-Version", "1")));
}

TEST_F(NoncachingOAuth2AuthenticatorTest, ACancelledTokenAsksForNothing) {
    Cancellation::Token token = Cancellation::CreateCancellable();
    token.Cancel();
    EXPECT_THROW(authenticator.AddAuthentication(request, nullptr, token),
                 Cancellation::OperationCancelledException);
    EXPECT_THAT(tokenGateway->calls, IsEmpty());
}

TEST_F(NoncachingOAuth2AuthenticatorTest, TheCallersTokenGoesWithTheTokenCall) {
    Cancellation::Token token = Cancellation::CreateCancellable();
    tokenGateway->onCall = [&] { token.Cancel(); };
    tokenGateway->Answer(200, R"({"access_token":"t"})");
    authenticator.AddAuthentication(request, nullptr, token);
    EXPECT_TRUE(tokenGateway->calls[0].token.IsCancelled());
}

TEST_F(NoncachingOAuth2AuthenticatorTest, HasNoFresherToken) {
    EXPECT_FALSE(authenticator.AddFreshAuthentication(request, nullptr, Cancellation::Token()));
    EXPECT_THAT(tokenGateway->calls, IsEmpty());
    EXPECT_THAT(HeadersOf(*request), ElementsAre(Pair("Contract-Version", "1")));
}

}  // namespace
}  // namespace Ombry::Tests
