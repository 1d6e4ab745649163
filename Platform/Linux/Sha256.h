#pragma once

#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace Ombry::Platform::Linux {

/// SHA-256 (FIPS 180-4) without the search for a provider, for which OpenSSL lists all algorithms that it
/// has: the first one takes as long as all else that a short program does. The state is wiped when it goes.
class Sha256 {
public:
    using Value = std::array<std::uint8_t, 32>;

    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void Update(std::string_view data);
    /// Once; no more data may follow. The value may be a secret, of which nothing else is left.
    void Finish(Value& value);

private:
    SHA256_CTX context;
};

inline std::string_view TextOf(const Sha256::Value& value) {
    return {reinterpret_cast<const char*>(value.data()), value.size()};
}

/// HMAC (RFC 2104) with SHA-256 of `parts`, one behind the other. Of the key and the value nothing else is
/// left.
void HmacSha256(std::string_view key, std::initializer_list<std::string_view> parts, Sha256::Value& value);

}  // namespace Ombry::Platform::Linux
