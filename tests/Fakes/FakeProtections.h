#pragma once

#include "Platform/IMachineProtection.h"
#include "Platform/IMemoryProtection.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// Memory protection that a test can read: it flips every bit, keeps what it was given, fails on demand, and
/// can hand out bytes of the test's choice. For one thread.
class FakeMemoryProtection : public Platform::IMemoryProtection {
public:
    struct Call {
        std::string operation;
        std::string bytes;  ///< as they came in
        std::uint32_t flags;
    };

    Platform::Result Protect(std::span<std::uint8_t> memory, std::uint32_t flags) override {
        return Work("Protect", memory, flags);
    }
    Platform::Result Unprotect(std::span<std::uint8_t> memory, std::uint32_t flags) override {
        return Work("Unprotect", memory, flags);
    }

    std::vector<Call> calls;
    std::string failing;  ///< the operation that fails with `error`
    int error = 0;
    /// Called before each operation, with the memory that it is about.
    std::function<void(std::span<std::uint8_t> memory)> observe;

private:
    Platform::Result Work(const char* operation, std::span<std::uint8_t> memory, std::uint32_t flags) {
        calls.push_back({operation, std::string(memory.begin(), memory.end()), flags});
        if (observe) observe(memory);
        if (failing == operation) return Platform::Result::Failure(error);
        for (std::uint8_t& byte : memory)
            byte = static_cast<std::uint8_t>(~byte);
        return Platform::Result::Success();
    }
};

/// Machine protection that a test can read: the blob is the entropy, "|", the flags, "|" and the plain text
/// reversed. What was protected with another entropy fails with number 13. For one thread.
class FakeMachineProtection : public Platform::IMachineProtection {
public:
    using Outcome = Platform::ValueOr<std::optional<std::string>>;

    Outcome Protect(std::string_view plain, std::string_view entropy, std::uint32_t flags) override {
        calls.push_back("Protect");
        if (failing == "Protect") return Fail();
        return std::optional<std::string>(Front(entropy, flags) + std::string(plain.rbegin(), plain.rend()));
    }
    Outcome Unprotect(std::string_view blob, std::string_view entropy, std::uint32_t flags) override {
        calls.push_back("Unprotect");
        if (failing == "Unprotect") return Fail();
        const std::string front = Front(entropy, flags);
        if (!blob.starts_with(front)) return Platform::Result::Failure(13);
        blob.remove_prefix(front.size());
        return std::optional<std::string>(std::string(blob.rbegin(), blob.rend()));
    }

    std::vector<std::string> calls;
    std::string failing;  ///< the operation that fails with `error`, or succeeds with no data if that is 0
    int error = 0;

private:
    static std::string Front(std::string_view entropy, std::uint32_t flags) {
        return std::string(entropy) + "|" + std::to_string(flags) + "|";
    }
    Outcome Fail() const {
        if (error == 0) return std::optional<std::string>();
        return Platform::Result::Failure(error);
    }
};

}  // namespace Ombry::Tests
