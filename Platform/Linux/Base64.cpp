#include "Platform/Linux/Base64.h"

#include <array>
#include <cerrno>
#include <limits>

namespace Ombry::Platform::Linux {
namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t NoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> MakeValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(NoDigit);
    for (std::uint8_t i = 0; i < 64; ++i)
        values[static_cast<std::uint8_t>(Alphabet[i])] = i;
    return values;
}
constexpr std::array<std::uint8_t, 256> Values = MakeValues();

bool IsSpace(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

// Characters of an encoded text, counted and checked.
struct Shape {
    std::uint64_t digits = 0;
    std::uint64_t padding = 0;
    std::uint8_t lastDigit = 0;

    // False for a character that has no place where it stands.
    bool Take(char character) {
        const std::uint8_t value = Values[static_cast<std::uint8_t>(character)];
        if (value == NoDigit) return IsSpace(character) || (character == '=' && ++padding <= 2);
        lastDigit = value;
        ++digits;
        return padding == 0;
    }
    // Bits of the last digit that belong to no byte are zero in every encoder's output: one text for one
    // value.
    bool IsComplete() const {
        return digits != 0 && (digits + padding) % 4 == 0 && (lastDigit & ((1u << 2 * padding) - 1)) == 0;
    }
    std::uint64_t Size() const { return digits * 3 / 4; }
};

}  // namespace

ValueOr<std::uint32_t> EncodeBase64(std::span<const std::uint8_t> binary, char* text, std::uint32_t room) {
    const std::uint64_t needed = (std::uint64_t{binary.size()} + 2) / 3 * 4;
    if (needed > std::numeric_limits<std::uint32_t>::max()) return Result::Failure(EFBIG);
    if (!text) return static_cast<std::uint32_t>(needed);
    if (room < needed) return Result::Failure(ERANGE);
    for (std::size_t at = 0; at < binary.size(); at += 3) {
        const std::size_t left = binary.size() - at;
        const std::uint32_t group = std::uint32_t{binary[at]} << 16 |
                                    (left > 1 ? std::uint32_t{binary[at + 1]} << 8 : 0) |
                                    (left > 2 ? std::uint32_t{binary[at + 2]} : 0);
        *text++ = Alphabet[group >> 18];
        *text++ = Alphabet[group >> 12 & 63];
        *text++ = left > 1 ? Alphabet[group >> 6 & 63] : '=';
        *text++ = left > 2 ? Alphabet[group & 63] : '=';
    }
    return static_cast<std::uint32_t>(needed);
}

ValueOr<std::uint32_t> DecodeBase64(std::string_view text, std::uint8_t* binary, std::uint32_t room) {
    Shape shape;
    for (const char character : text) {
        if (!shape.Take(character)) return Result::Failure(EINVAL);
    }
    if (!shape.IsComplete()) return Result::Failure(EINVAL);
    if (shape.Size() > std::numeric_limits<std::uint32_t>::max()) return Result::Failure(EFBIG);
    if (binary && room < shape.Size()) return Result::Failure(ERANGE);

    if (!binary) return static_cast<std::uint32_t>(shape.Size());

    std::uint32_t pending = 0;
    int bits = 0;
    for (const char character : text) {
        const std::uint8_t value = Values[static_cast<std::uint8_t>(character)];
        if (value == NoDigit) continue;  // white space and padding
        pending = pending << 6 | value;
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        *binary++ = static_cast<std::uint8_t>(pending >> bits);
    }
    return static_cast<std::uint32_t>(shape.Size());
}

}  // namespace Ombry::Platform::Linux
