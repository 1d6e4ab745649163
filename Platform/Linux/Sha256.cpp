#include "Platform/Linux/Sha256.h"

#include "Platform/SecureWipe.h"

#include <algorithm>

// OpenSSL would rather have its low level called through its providers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace Ombry::Platform::Linux {
namespace {

constexpr std::size_t BlockSize = 64;

}  // namespace

Sha256::Sha256() {
    SHA256_Init(&context);
}

Sha256::~Sha256() {
    SecureWipe(&context, sizeof context);
}

void Sha256::Update(std::string_view data) {
    SHA256_Update(&context, data.data(), data.size());
}

void Sha256::Finish(Value& value) {
    SHA256_Final(value.data(), &context);
}

void HmacSha256(std::string_view key, std::initializer_list<std::string_view> parts, Sha256::Value& value) {
    std::array<char, BlockSize> block{};
    if (key.size() > block.size()) {
        Sha256 shortened;
        shortened.Update(key);
        shortened.Finish(value);
        key = TextOf(value);
    }
    std::copy(key.begin(), key.end(), block.begin());
    const auto mixedWith = [&block](char mask) {
        for (char& byte : block)
            byte = static_cast<char>(byte ^ mask);
        return std::string_view(block.data(), block.size());
    };
    Sha256 inner;
    inner.Update(mixedWith(0x36));
    for (const std::string_view part : parts)
        inner.Update(part);
    inner.Finish(value);
    Sha256 outer;
    outer.Update(mixedWith(0x36 ^ 0x5c));
    outer.Update(TextOf(value));
    outer.Finish(value);
    SecureWipe(block.data(), block.size());
}

}  // namespace Ombry::Platform::Linux

#pragma GCC diagnostic pop
