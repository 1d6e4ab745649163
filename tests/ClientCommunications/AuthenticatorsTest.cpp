#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/ClientAuthenticator.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/EmptyAuthenticator.h"
#include "ClientCommunications/Impl/FixedTokenAuthenticator.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "tests/Fakes/ForeignRequest.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/HeadersOf.h"

#include <gmock/gmock.h>

#include <map>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::Pair;

class WatchedCredentials : public IClientCredentials {
public:
    std::string GetName() override {
        calls.push_back("name");
        return "name";
    }
    std::string GetClientId() override {
        calls.push_back("id");
        return id;
    }
    std::string GetClientSecret() override {
        calls.push_back("secret");
        return secret;
    }
    std::string id = "a";
    std::string secret = "b";
    std::vector<std::string> calls;
};

class AuthenticatorsTest : public testing::Test {
protected:
    std::map<std::string, std::string> After(IAuthenticator& authenticator) {
        authenticator.AddAuthentication(request, nullptr, Cancellation::Token());
        return HeadersOf(*request);
    }

    const std::shared_ptr<IServiceRequest> request = CreateServiceRequest("GET", "/path", "1");
};

TEST_F(AuthenticatorsTest, ClientAuthenticatorPutsIdAndSecretAsBasic) {
    const auto credentials = std::make_shared<WatchedCredentials>();
    ClientAuthenticator authenticator(credentials);

    EXPECT_THAT(After(authenticator),
                ElementsAre(Pair("Authorization", "Basic YTpi"), Pair("Contract-Version", "1")));
    EXPECT_THAT(credentials->calls, ElementsAre("secret", "id"));
}

TEST_F(AuthenticatorsTest, ClientAuthenticatorWithAnEmptySecretEndsInTheColon) {
    const auto credentials = std::make_shared<WatchedCredentials>();
    credentials->id = "id";
    credentials->secret = "";
    ClientAuthenticator authenticator(credentials);

    EXPECT_EQ(After(authenticator)["Authorization"], "Basic aWQ6");
}

TEST_F(AuthenticatorsTest, ClientAuthenticatorTakesAnyBytesOfRealCredentials) {
    ClientAuthenticator authenticator(std::make_shared<ClientCredentials>(
        std::make_shared<WindowsInMemoryDataProtection>(), "n", "us:er", std::string("p\0\xff", 3)));

    EXPECT_EQ(After(authenticator)["Authorization"], "Basic dXM6ZXI6cAD/");
}

TEST_F(AuthenticatorsTest, ClientAuthenticatorLeavesNoSecretInTheMemoryThatItFrees) {
    const auto credentials = std::make_shared<WatchedCredentials>();
    credentials->id = "an id too long for a string object";
    credentials->secret = "a secret too long for a string object";
    ClientAuthenticator authenticator(credentials);
    const std::string encoded = Base64Encode(credentials->id + ":" + credentials->secret);
    // The request keeps the header.
    for (const std::string& trace :
         {credentials->id, credentials->secret, encoded.substr(0, 20), encoded.substr(encoded.size() - 20)}) {
        const FreedMemory freed(trace);
        authenticator.AddAuthentication(request, nullptr, Cancellation::Token());
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << trace;
    }
    EXPECT_EQ(HeadersOf(*request)["Authorization"], "Basic " + encoded);
}

TEST_F(AuthenticatorsTest, FixedTokenAuthenticatorLeavesNoTokenInTheMemoryThatItFrees) {
    const std::string token = "a token too long for a string object";
    const FreedMemory freed(token);

    auto authenticator = std::make_unique<FixedTokenAuthenticator>(token);
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << "that it was made with";
    authenticator->AddAuthentication(request, nullptr, Cancellation::Token());
    authenticator.reset();

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST_F(AuthenticatorsTest, ARequestKeepsAFixedTokenUntilItGoesAndItIsWipedThen) {
    const std::string token = "a token too long for a string object";
    auto authenticator = std::make_unique<FixedTokenAuthenticator>(token);
    auto own = CreateServiceRequest("GET", "/path", "1");
    authenticator->AddAuthentication(own, nullptr, Cancellation::Token());
    authenticator.reset();
    EXPECT_EQ(own->GetHeader("Authorization"), "Bearer " + token);

    const FreedMemory freed(token);
    own.reset();

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST_F(AuthenticatorsTest, EachCallReplacesTheHeaderOfTheOneBefore) {
    const auto credentials = std::make_shared<WatchedCredentials>();
    ClientAuthenticator authenticator(credentials);
    After(authenticator);
    credentials->secret = "c";

    EXPECT_EQ(After(authenticator)["Authorization"], "Basic YTpj");
}

TEST_F(AuthenticatorsTest, EmptyAuthenticatorLeavesTheRequestAsItWas) {
    EmptyAuthenticator authenticator;

    EXPECT_THAT(After(authenticator), ElementsAre(Pair("Contract-Version", "1")));
}

TEST_F(AuthenticatorsTest, FixedTokenAuthenticatorPutsItsTokenAsBearer) {
    FixedTokenAuthenticator authenticator("to ken");

    EXPECT_THAT(After(authenticator),
                ElementsAre(Pair("Authorization", "Bearer to ken"), Pair("Contract-Version", "1")));

    FixedTokenAuthenticator other("other");
    EXPECT_EQ(After(other)["Authorization"], "Bearer other");
}

TEST_F(AuthenticatorsTest, FixedTokenAuthenticatorPutsItsTokenOnARequestOfAnotherClassToo) {
    const auto foreign = std::make_shared<ForeignRequest>();
    FixedTokenAuthenticator("token").AddAuthentication(foreign, nullptr, Cancellation::Token());
    EXPECT_EQ(foreign->GetHeader("Authorization"), "Bearer token");
}

TEST_F(AuthenticatorsTest, NoneHasFresherCredentialsAndTheRequestStaysAsItWas) {
    const auto credentials = std::make_shared<WatchedCredentials>();
    ClientAuthenticator client(credentials);
    EmptyAuthenticator empty;
    FixedTokenAuthenticator fixed("token");
    for (IAuthenticator* authenticator : std::initializer_list<IAuthenticator*>{&client, &empty, &fixed}) {
        EXPECT_FALSE(authenticator->AddFreshAuthentication(request, nullptr, Cancellation::Token()));
        EXPECT_THAT(HeadersOf(*request), ElementsAre(Pair("Contract-Version", "1")));
    }
    EXPECT_THAT(credentials->calls, ElementsAre());
}

}  // namespace
}  // namespace Ombry::Tests
