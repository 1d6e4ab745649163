#include "ClientCommunications/Impl/Base64.h"

#include <array>
#include <cstdint>

namespace Ombry::ClientCommunications {
namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> MakeValues() {
    std::array<std::int8_t, 256> values{};
    for (auto& value : values)
        value = -1;
    for (int i = 0; i < 64; ++i)
        values[static_cast<unsigned char>(Alphabet[i])] = static_cast<std::int8_t>(i);
    return values;
}

constexpr std::array<std::int8_t, 256> Values = MakeValues();

// Index in the alphabet as a 32-bit word; all ones for any other character and past the end.
std::uint32_t ValueAt(const std::string& text, std::size_t position) {
    const char c = position < text.size() ? text[position] : '\0';
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(Values[static_cast<unsigned char>(c)]));
}

char Byte(std::uint32_t bits) {
    return static_cast<char>(static_cast<unsigned char>(bits & 0xff));
}

}  // namespace

std::string Base64Encode(const std::string& data) {
    std::string text;
    text.reserve((data.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < data.size(); i += 3) {
        const auto at = [&](std::size_t k) -> std::uint32_t {
            return i + k < data.size() ? static_cast<unsigned char>(data[i + k]) : 0U;
        };
        const std::uint32_t bits = at(0) << 16 | at(1) << 8 | at(2);
        text += Alphabet[bits >> 18];
        text += Alphabet[bits >> 12 & 63];
        text += i + 1 < data.size() ? Alphabet[bits >> 6 & 63] : '=';
        text += i + 2 < data.size() ? Alphabet[bits & 63] : '=';
    }
    return text;
}

std::string Base64Decode(const std::string& text) {
    std::string data;
    data.reserve(text.size() / 4 * 3 + 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const std::uint32_t second = ValueAt(text, i + 1);
        data += Byte((ValueAt(text, i) & 63) << 2 | (second >> 4 & 3));
        if (i + 2 >= text.size()) break;
        if (text[i + 2] == '=') return data;
        const std::uint32_t third = ValueAt(text, i + 2);
        data += Byte((second & 15) << 4 | (third >> 2 & 15));
        if (i + 3 >= text.size()) break;
        if (text[i + 3] == '=') return data;
        data += Byte(third << 6 | ValueAt(text, i + 3));
    }
    return data;
}

}  // namespace Ombry::ClientCommunications
