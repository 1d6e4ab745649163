#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Ombry::Platform {

/// Enciphers data so that only this machine can read it back, given the same entropy. The shape is that of
/// CryptProtectData; success may come with no data, which callers report in words of their own.
class IMachineProtection {
public:
    static constexpr std::uint32_t UserInterfaceForbidden = 1;  ///< fails rather than to ask somebody
    /// For every user of the machine; without it, for the current user alone.
    static constexpr std::uint32_t LocalMachine = 4;

    virtual ~IMachineProtection() = default;
    virtual ValueOr<std::optional<std::string>> Protect(std::string_view plain, std::string_view entropy,
                                                        std::uint32_t flags) = 0;
    virtual ValueOr<std::optional<std::string>> Unprotect(std::string_view blob, std::string_view entropy,
                                                          std::uint32_t flags) = 0;

    /// What an administrator can do about a failure with that number; empty where the number says it all.
    virtual std::string_view Remedy(int /*error*/) const { return {}; }
};

template <>
IMachineProtection& Production<IMachineProtection>();

inline IMachineProtection& MachineProtection() {
    return Current<IMachineProtection>();
}

}  // namespace Ombry::Platform
