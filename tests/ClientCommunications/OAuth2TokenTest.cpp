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

// What it reads the token from is the reader's copy of the text; on the way the token lies on its stack, and
// at last in the document.
TEST(OAuth2TokenTest, ReadingATokenLeavesNothingOfItInFreedMemory) {
    const std::string secret = "a token too long for a string object";
    const std::string more(100'000, 'x');  // more than the document has room for at first
    const std::string texts[] = {
        R"({"access_token":")" + secret + "\"}",
        R"({"access_token":"\t)" + secret + R"(\n","scope":")" + more + R"("})",
        R"({"scope":")" + more + R"(","access_token":")" + more + secret + "\"}",
    };
    for (const std::string& text : texts) {
        OAuth2Token token;
        const FreedMemory freed(secret);
        ObjectMapping::DeserializeObject(token, text, nullptr, false);
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << text;
        EXPECT_NE(token.accessToken.find(secret), std::string::npos);
    }
}

TEST(OAuth2TokenTest, AShortTokenLeavesNothingOfItInFreedMemoryEither) {
    const std::string secret = "13 characters";  // which a value of the document holds in itself
    const std::string text = R"({"access_token":")" + secret + "\"}";
    OAuth2Token token;
    const FreedMemory freed(secret);
    ObjectMapping::DeserializeObject(token, text, nullptr, false);
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(token.accessToken, secret);
}

TEST(OAuth2TokenTest, AReaderLeavesNothingOfTheTextThatItWasBegunWith) {
    const std::string secret = "a token too long for a string object";
    const std::string text = R"({"access_token":")" + secret + "\"}";
    for (const std::string& next : {text, std::string("{}"), std::string(1'000, ' ') + "{}"}) {
        const FreedMemory freed(secret);
        auto reader = ObjectMapping::CreateJSONDeserializer(false);
        reader->Begin(text);
        reader->Begin(next);
        reader.reset();  // without its end
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << next.size();
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
