#include "Sandbox/Tokens.h"

#include "Sandbox/Json.h"

#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/err.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Ombry::Sandbox {
namespace {

// The signature on the wire is r and s, 32 bytes each (RFC 7518, section 3.4); OpenSSL speaks DER.
constexpr std::size_t ScalarSize = 32;

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string EncodeUrl(const std::string& data) {
    std::string text;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : data) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (count += 8; count >= 6; count -= 6)
            text += Alphabet[bits >> (count - 6) & 63];
    }
    if (count > 0) text += Alphabet[bits << (6 - count) & 63];
    return text;
}

std::optional<std::string> DecodeUrl(std::string_view text) {
    std::string data;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const char* const found = std::char_traits<char>::find(Alphabet, 64, c);
        if (!found) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(found - Alphabet);
        count += 6;
        if (count >= 8) {
            count -= 8;
            data += static_cast<char>(static_cast<unsigned char>(bits >> count & 0xff));
        }
    }
    // A token has one spelling: the bits behind the last whole byte are zero.
    if ((bits & ((1u << count) - 1)) != 0) return std::nullopt;
    return data;
}

using DigestContext = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;
using Signature = std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)>;

std::string Sign(const std::string& text, EVP_PKEY* key) {
    const DigestContext context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::size_t size = 0;
    const auto* const data = reinterpret_cast<const unsigned char*>(text.data());
    if (EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &size, data, text.size()) != 1) {
        throw std::runtime_error("Cannot sign a token.");
    }
    std::vector<unsigned char> der(size);
    if (EVP_DigestSign(context.get(), der.data(), &size, data, text.size()) != 1) {
        throw std::runtime_error("Cannot sign a token.");
    }
    const unsigned char* p = der.data();
    const Signature signature(d2i_ECDSA_SIG(nullptr, &p, static_cast<long>(size)), ECDSA_SIG_free);
    std::string raw(2 * ScalarSize, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(raw.data());
    BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), out, ScalarSize);
    BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), out + ScalarSize, ScalarSize);
    return raw;
}

bool IsSignedBy(EVP_PKEY* key, std::string_view text, const std::string& raw) {
    if (raw.size() != 2 * ScalarSize) return false;
    const auto* const in = reinterpret_cast<const unsigned char*>(raw.data());
    const Signature signature(ECDSA_SIG_new(), ECDSA_SIG_free);
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(in, ScalarSize, nullptr),
                   BN_bin2bn(in + ScalarSize, ScalarSize, nullptr));
    unsigned char* der = nullptr;
    const int size = i2d_ECDSA_SIG(signature.get(), &der);
    if (size <= 0) return false;
    const DigestContext context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    const bool good = EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
                      EVP_DigestVerify(context.get(), der, static_cast<std::size_t>(size),
                                       reinterpret_cast<const unsigned char*>(text.data()), text.size()) == 1;
    OPENSSL_free(der);
    ERR_clear_error();
    return good;
}

}  // namespace

std::string SignToken(const TokenClaims& claims, std::int64_t now, const Identity& identity) {
    const std::string body = WriteJson([&](JsonWriter& writer) {
        writer.StartObject();
        WriteMember(writer, "jti", claims.id);
        WriteMember(writer, "sub", claims.subject);
        WriteMember(writer, "aud", claims.serviceName);
        writer.Key("iat");
        writer.Int64(now);
        writer.Key("exp");
        writer.Int64(claims.expires);
        writer.EndObject();
    });
    const std::string text = EncodeUrl(R"({"alg":"ES256","typ":"JWT"})") + "." + EncodeUrl(body);
    return text + "." + EncodeUrl(Sign(text, identity.Key()));
}

std::optional<TokenClaims> VerifyToken(const std::string& token, std::int64_t now, const Identity& identity) {
    const std::size_t first = token.find('.');
    const std::size_t last = token.rfind('.');
    if (first == std::string::npos || last <= first) return std::nullopt;
    const std::string_view all(token);
    const auto signature = DecodeUrl(all.substr(last + 1));
    const auto body = DecodeUrl(all.substr(first + 1, last - first - 1));
    if (!signature || !body || !IsSignedBy(identity.Key(), all.substr(0, last), *signature))
        return std::nullopt;
    rapidjson::Document document;
    document.Parse(body->c_str());
    if (document.HasParseError() || !document.IsObject()) return std::nullopt;
    const rapidjson::Value& claims = document;
    const auto expires = claims.FindMember("exp");
    if (expires == claims.MemberEnd() || !expires->value.IsInt64() || expires->value.GetInt64() <= now) {
        return std::nullopt;
    }
    return TokenClaims{TextMember(document, "jti"), TextMember(document, "sub"), TextMember(document, "aud"),
                       expires->value.GetInt64()};
}

}  // namespace Ombry::Sandbox
