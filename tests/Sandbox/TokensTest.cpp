#include "Sandbox/Tokens.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <openssl/hmac.h>

#include <algorithm>

namespace Ombry::Tests {
namespace {

using Sandbox::Identity;
using Sandbox::SignToken;
using Sandbox::TokenClaims;
using Sandbox::VerifyToken;

constexpr std::int64_t Now = 1'600'000'000;

std::string ToBase64Url(const std::string& bytes) {
    std::string text = Base64Of(bytes);
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    text.resize(std::min(text.find('='), text.size()));
    return text;
}

class SandboxTokensTest : public testing::Test {
protected:
    bool IsGood(const std::string& token, std::int64_t now = Now) {
        return VerifyToken(token, now, identity).has_value();
    }
    std::string Sign(std::int64_t expires = Now + 60) {
        return SignToken({"id-1", "user:admin", "v1-auth", expires}, Now, identity);
    }

    const TemporaryDirectory folder;
    const Identity identity{folder.Path()};
};

TEST_F(SandboxTokensTest, ClaimsComeBackAsTheyWereSigned) {
    // Lengths that leave each number of bits behind the last whole byte, and characters that JSON escapes.
    for (const std::string& subject : {std::string("c"), std::string("cl"), std::string("cli"),
                                       std::string("\"\\\n\0é", 6), std::string()}) {
        const auto claims =
            VerifyToken(SignToken({"id-1", subject, "v1-service", Now + 1}, Now, identity), Now, identity);
        ASSERT_TRUE(claims) << subject;
        EXPECT_EQ(claims->id, "id-1");
        EXPECT_EQ(claims->subject, subject);
        EXPECT_EQ(claims->serviceName, "v1-service");
        EXPECT_EQ(claims->expires, Now + 1);
    }
}

TEST_F(SandboxTokensTest, TokenIsThreePartsOfTheStatedTexts) {
    const std::string token = Sign();
    const std::string head = ToBase64Url(R"({"alg":"ES256","typ":"JWT"})");
    const std::string body =
        ToBase64Url(R"({"jti":"id-1","sub":"user:admin","aud":"v1-auth","iat":1600000000,"exp":1600000060})");
    EXPECT_EQ(token.substr(0, token.rfind('.')), head + "." + body);
    // 64 bytes, as RFC 7518 has them.
    EXPECT_EQ(token.size() - token.rfind('.') - 1, 86u);
}

TEST_F(SandboxTokensTest, TokenIsGoodUntilItExpiresAndNotThen) {
    EXPECT_TRUE(IsGood(Sign(Now + 1)));
    EXPECT_FALSE(IsGood(Sign(Now)));
    EXPECT_FALSE(IsGood(Sign(Now - 1)));
    EXPECT_TRUE(IsGood(Sign(Now + 60), Now + 59));
    EXPECT_FALSE(IsGood(Sign(Now + 60), Now + 60));
}

TEST_F(SandboxTokensTest, NoCharacterCanBeChangedTakenOrAdded) {
    const std::string token = Sign();
    for (std::size_t i = 0; i < token.size(); ++i) {
        for (const char c : {'A', 'B', 'Q', 'g', 'w', '.', '=', '\0'}) {
            std::string other = token;
            if (other[i] == c) continue;
            other[i] = c;
            EXPECT_FALSE(IsGood(other)) << i << " " << c;
        }
        EXPECT_FALSE(IsGood(token.substr(0, i))) << i;
        EXPECT_FALSE(IsGood(token.substr(0, i) + token.substr(i + 1))) << i;
    }
    // Of the last character four bits stand behind the last byte.
    for (int c = 0; c < 256; ++c) {
        const std::string other = token.substr(0, token.size() - 1) + static_cast<char>(c);
        EXPECT_EQ(IsGood(other), other == token) << c;
    }
    for (const char* tail : {"A", "=", "==", ".", " ", "\n", ".AAAA"})
        EXPECT_FALSE(IsGood(token + tail)) << tail;
    EXPECT_FALSE(IsGood(" " + token));
}

TEST_F(SandboxTokensTest, TextThatIsNoTokenIsRefused) {
    for (const std::string& text : {std::string(), std::string("."), std::string(".."), std::string("..."),
                                    std::string("a.b"), std::string("a.b.c"), std::string(100000, '.'),
                                    std::string(100000, 'A'), std::string("\0.\0.\0", 5)})
        EXPECT_FALSE(IsGood(text)) << text.substr(0, 9);
}

TEST_F(SandboxTokensTest, TokenOfAnotherKeyIsRefused) {
    const TemporaryDirectory elsewhere;
    const Identity other(elsewhere.Path());
    EXPECT_FALSE(VerifyToken(Sign(), Now, other));
}

TEST_F(SandboxTokensTest, OtherAlgorithmsAreRefusedWhateverTheirSignature) {
    const std::string token = Sign();
    const std::string body = token.substr(token.find('.'), token.rfind('.') - token.find('.'));
    const std::string none = ToBase64Url(R"({"alg":"none"})") + body + ".";
    EXPECT_FALSE(IsGood(none));
    EXPECT_FALSE(IsGood(none + token.substr(token.rfind('.') + 1)));
    EXPECT_FALSE(IsGood(none + std::string(86, 'A')));  // r and s are zero
    // The public key as the secret of a message authentication code.
    unsigned char* point = nullptr;
    const std::size_t size = EVP_PKEY_get1_encoded_public_key(identity.Key(), &point);
    const std::string text = ToBase64Url(R"({"alg":"HS256","typ":"JWT"})") + body;
    unsigned char mac[32];
    HMAC(EVP_sha256(), point, static_cast<int>(size), reinterpret_cast<const unsigned char*>(text.data()),
         text.size(), mac, nullptr);
    OPENSSL_free(point);
    EXPECT_FALSE(IsGood(text + "." + ToBase64Url(std::string(mac, mac + sizeof mac))));
}

}  // namespace
}  // namespace Ombry::Tests
