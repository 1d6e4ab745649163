#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Current.h"
#include "Platform/Result.h"

namespace Ombry::Platform {

/// Enciphers memory in place under a key that lives and dies with the process. The shape is that of
/// CryptProtectMemory: lengths are whole blocks, and a length of 0 or of no whole blocks fails with
/// number 87.
class IMemoryProtection {
public:
    static constexpr std::size_t BlockSize = 16;
    static constexpr int InvalidParameter = 87;

    virtual ~IMemoryProtection() = default;
    virtual Result Protect(std::span<std::uint8_t> memory, std::uint32_t flags) = 0;
    virtual Result Unprotect(std::span<std::uint8_t> memory, std::uint32_t flags) = 0;
};

inline IMemoryProtection& MemoryProtection() {
    return Current<IMemoryProtection>();
}

/// Enciphers data so that only this machine can read it back, given the same entropy. The shape is that of
/// CryptProtectData; success may come with no data, which callers report in words of their own.
class IMachineProtection {
public:
    static constexpr std::uint32_t UserInterfaceForbidden = 1;
    static constexpr std::uint32_t LocalMachine = 4;

    virtual ~IMachineProtection() = default;
    virtual ValueOr<std::optional<std::string>> Protect(std::string_view plain, std::string_view entropy,
                                                        std::uint32_t flags) = 0;
    virtual ValueOr<std::optional<std::string>> Unprotect(std::string_view blob, std::string_view entropy,
                                                          std::uint32_t flags) = 0;

    /// What an administrator can do about a failure with that number; empty where the number says it all.
    virtual std::string_view Remedy(int /*error*/) const { return {}; }
};

inline IMachineProtection& MachineProtection() {
    return Current<IMachineProtection>();
}

/// Overwrites memory that held a secret, by a call that the optimiser cannot remove.
void SecureWipe(void* memory, std::size_t length) noexcept;

/// Overwrites the characters of a string in place; the length stays.
inline void SecureWipe(std::string& text) noexcept {
    SecureWipe(text.data(), text.size());
}

}  // namespace Ombry::Platform
