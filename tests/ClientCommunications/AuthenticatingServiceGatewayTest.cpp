#include "ClientCommunications/Impl/AuthenticatingServiceGateway.h"
#include "ClientCommunications/Impl/BootstrapServiceRequestFactory.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

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

}  // namespace
}  // namespace Ombry::Tests
