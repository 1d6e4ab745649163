#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace Ombry::Platform {

/// One SHA-256 computation (FIPS 180-4). The steps are those of the CryptoAPI, each of which can fail.
class IHashObject {
public:
    virtual ~IHashObject() = default;
    virtual Result Update(std::string_view data) = 0;
    /// Size of the value in bytes.
    virtual ValueOr<std::uint32_t> GetSize() = 0;
    /// Fills `value`, which is `GetSize` bytes long; no more data may follow.
    virtual Result GetValue(std::span<std::uint8_t> value) = 0;
};

/// A provider that hashes are made from; it outlives them.
class IHashProvider {
public:
    virtual ~IHashProvider() = default;
    virtual ValueOr<std::unique_ptr<IHashObject>> CreateSha256() = 0;
};

class IHash {
public:
    virtual ~IHash() = default;
    virtual ValueOr<std::unique_ptr<IHashProvider>> AcquireProvider() = 0;
};

template <>
IHash& Production<IHash>();

inline IHash& Hash() {
    return Current<IHash>();
}

}  // namespace Ombry::Platform
