#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"

#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "Platform/ErrorNumber.h"
#include "Platform/IMemoryProtection.h"
#include "Platform/SecureWipe.h"

#include <algorithm>
#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

constexpr std::size_t BlockSize = Platform::IMemoryProtection::BlockSize;

bool IsPaddingCorrect(std::span<const std::uint8_t> bytes) {
    const std::size_t padding = bytes.back();
    // A padding of 0, or of more than there is, cannot come from `Protect`.
    if (padding == 0 || padding > BlockSize || padding > bytes.size()) return false;
    const auto tail = bytes.last(padding);
    return std::all_of(tail.begin(), tail.end(), [&](std::uint8_t byte) { return byte == padding; });
}

// Not by iterators over bytes: the string would first make a string of them, whose memory nobody wipes.
void Assign(std::string& data, std::span<const std::uint8_t> bytes) {
    data.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

WindowsInMemoryDataProtection::WindowsInMemoryDataProtection(int scope)
    : flags(scope == 1 || scope == 2 ? static_cast<std::uint32_t>(scope) : 0U) {}

void WindowsInMemoryDataProtection::Protect(std::string& data) {
    if (data.empty()) return;
    const std::size_t padding = BlockSize - data.size() % BlockSize;
    SecretBuffer buffer(data.size() + padding);
    const std::span<std::uint8_t> bytes = buffer.Bytes();
    std::copy(data.begin(), data.end(), bytes.begin());
    std::fill(bytes.end() - static_cast<std::ptrdiff_t>(padding), bytes.end(),
              static_cast<std::uint8_t>(padding));
    if (const Platform::Result result = Platform::MemoryProtection().Protect(bytes, flags); !result) {
        throw std::runtime_error("CryptProtectMemory failed with error " +
                                 Platform::ErrorNumber(result.Error()));
    }
    Platform::SecureWipe(data);
    Assign(data, bytes);
    data = Base64Encode(data);
}

void WindowsInMemoryDataProtection::Unprotect(std::string& data) {
    if (data.empty()) return;
    data = Base64Decode(data);
    SecretBuffer buffer(data.size());
    const std::span<std::uint8_t> bytes = buffer.Bytes();
    std::copy(data.begin(), data.end(), bytes.begin());
    if (const Platform::Result result = Platform::MemoryProtection().Unprotect(bytes, flags); !result) {
        throw std::runtime_error("CryptUnprotectMemory failed with error " +
                                 Platform::ErrorNumber(result.Error()));
    }
    if (!IsPaddingCorrect(bytes)) {
        throw std::runtime_error("Padding is incorrect after CryptUnprotectMemory.");
    }
    const auto plain = bytes.first(bytes.size() - bytes.back());
    Assign(data, plain);
}

}  // namespace Ombry::ClientCommunications
