#include "ClientCommunications/Impl/BootstrapServiceRequestFactory.h"
#include "ClientCommunications/Impl/NoncachingOAuth2Authenticator.h"
#include "tests/Fakes/HeadersOf.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

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
