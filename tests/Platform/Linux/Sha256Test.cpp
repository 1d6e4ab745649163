#include "Platform/Linux/Sha256.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <string>

namespace Ombry::Tests {
namespace {

using Platform::Linux::Sha256;

/// By the library's own HMAC.
std::string Known(const std::string& key, const std::string& text) {
    std::string value(32, '\0');
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(value.data()), nullptr);
    return value;
}

TEST(Sha256Test, HmacIsTheLibrarysForKeysOfAnyLength) {
    for (const std::size_t length : {0, 1, 32, 63, 64, 65, 1000}) {
        std::string key(length, '\0');
        std::generate(key.begin(), key.end(), [byte = '\x70']() mutable { return byte++; });
        Sha256::Value value;
        Platform::Linux::HmacSha256(key, {"first", "", " and second"}, value);
        EXPECT_EQ(Platform::Linux::TextOf(value), Known(key, "first and second")) << length;
    }
}

}  // namespace
}  // namespace Ombry::Tests
