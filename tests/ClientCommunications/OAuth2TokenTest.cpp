#include "ClientCommunications/Impl/JwtAuthenticator.h"
#include "ClientCommunications/OAuth2Token.h"
#include "ObjectMapping/Serialization.h"
#include "tests/Fakes/FreedMemory.h"

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::OAuth2Token;

TEST(OAuth2TokenTest, MapsItsFieldsInOrderAndResets) {
    OAuth2Token token;
    token.tokenType = "a";
    token.accessToken = "b";
    token.expiresIn = 5;
    token.scope = "c";
    EXPECT_EQ(ObjectMapping::SerializeObject(token, nullptr),
              "{\n    \"token_type\": \"a\",\n    \"access_token\": \"b\",\n    \"expires_in\": 5,\n"
              "    \"scope\": \"c\"\n}");
    token.Reset();
    EXPECT_EQ(token.tokenType + token.accessToken + token.scope, "");
    EXPECT_EQ(token.expiresIn, 0u);
}

TEST(OAuth2TokenTest, ATokenThatIsSetBackLeavesNothingInTheMemoryThatItFrees) {
    const std::string secret = "a token too long for a string object";
    const FreedMemory freed(secret);
    for (const bool cached : {false, true}) {
        auto entry = std::make_unique<ClientCommunications::JwtCachedToken>();
        entry->token.accessToken = secret;
        if (cached) {
            entry->Reset();
        } else {
            entry->token.Reset();
        }
        entry.reset();
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << cached;
    }
}

TEST(OAuth2TokenTest, AllFieldsAreRequiredByAStrictReader) {
    OAuth2Token token;
    const std::string whole = ObjectMapping::SerializeObject(token, nullptr);
    for (const std::string key : {"token_type", "access_token", "expires_in", "scope"}) {
        std::string without = whole;
        without.replace(without.find(key), key.size(), "another");
        EXPECT_THROW(ObjectMapping::DeserializeObject(token, without, nullptr, true), std::runtime_error)
            << key;
    }
}

}  // namespace
}  // namespace Ombry::Tests
