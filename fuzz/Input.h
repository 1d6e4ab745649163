#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Ombry::Fuzz {

/// The fuzzer's bytes, taken from the front. Behind their end everything is empty or zero.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : rest(reinterpret_cast<const char*>(data), size) {}

    bool Empty() const { return rest.empty(); }
    std::size_t Byte() { return static_cast<unsigned char>(Bytes(1).append(1, '\0')[0]); }
    std::string Bytes(std::size_t count) {
        const std::string bytes(rest.substr(0, count));
        rest.remove_prefix(bytes.size());
        return bytes;
    }

private:
    std::string_view rest;
};

}  // namespace Ombry::Fuzz
