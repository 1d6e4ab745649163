#include "Platform/ITextConversion.h"
#include "Platform/MadeOnce.h"

#include <cstdint>
#include <limits>

namespace Ombry::Platform {
namespace {

constexpr int InvalidParameter = 87;
constexpr int InsufficientBuffer = 122;
constexpr char32_t Replacement = 0xFFFD;

// Takes one character off the front of `text`, which is not empty. Malformed input gives U+FFFD for each
// longest beginning of a character that could have become a valid one (Unicode, section 3.9).
char32_t TakeUtf8(std::string_view& text) {
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) {
        text.remove_prefix(1);
        return lead;
    }
    // The second byte's range is what keeps out overlong forms, surrogates and values above U+10FFFF.
    std::size_t length = 0;
    std::uint8_t lowest = 0x80;
    std::uint8_t highest = 0xBF;
    char32_t value = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0Fu;
        if (lead == 0xE0) lowest = 0xA0;
        if (lead == 0xED) highest = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07u;
        if (lead == 0xF0) lowest = 0x90;
        if (lead == 0xF4) highest = 0x8F;
    }
    std::size_t at = 1;
    while (at < length && at < text.size() && byte(at) >= lowest && byte(at) <= highest) {
        value = value << 6 | (byte(at) & 0x3Fu);
        lowest = 0x80;
        highest = 0xBF;
        ++at;
    }
    text.remove_prefix(at);
    return at == length ? value : Replacement;
}

// Takes one character off the front of `text`, which is not empty: a surrogate pair, or one wide character
// that may stand for any code point.
char32_t TakeWide(std::wstring_view& text) {
    const auto unit = static_cast<char32_t>(text[0]);
    text.remove_prefix(1);
    if (unit > 0x10FFFF) return Replacement;
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    if (unit >= 0xDC00 || text.empty()) return Replacement;
    const auto low = static_cast<char32_t>(text[0]);
    if (low < 0xDC00 || low > 0xDFFF) return Replacement;
    text.remove_prefix(1);
    return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

struct Wide {
    std::size_t count = 0;
    wchar_t units[2];

    explicit Wide(char32_t character) {
        if (character < 0x10000) {
            Put(character);
        } else {
            Put(0xD800 + ((character - 0x10000) >> 10));
            Put(0xDC00 + ((character - 0x10000) & 0x3FF));
        }
    }
    void Put(char32_t unit) { units[count++] = static_cast<wchar_t>(unit); }
};

struct Utf8 {
    std::size_t count = 0;
    char units[4];

    explicit Utf8(char32_t character) {
        if (character < 0x80) {
            Put(character);
        } else if (character < 0x800) {
            Put(0xC0 | character >> 6);
            Put(0x80 | (character & 0x3F));
        } else if (character < 0x10000) {
            Put(0xE0 | character >> 12);
            Put(0x80 | (character >> 6 & 0x3F));
            Put(0x80 | (character & 0x3F));
        } else {
            Put(0xF0 | character >> 18);
            Put(0x80 | (character >> 12 & 0x3F));
            Put(0x80 | (character >> 6 & 0x3F));
            Put(0x80 | (character & 0x3F));
        }
    }
    void Put(char32_t byte) { units[count++] = static_cast<char>(byte); }
};

template <class Encoded, class View, class Character, class Take>
ITextConversion::Count Convert(View text, Character* out, std::size_t room, Take take) {
    if (text.empty()) return {0, InvalidParameter};
    std::size_t count = 0;
    while (!text.empty()) {
        const Encoded encoded(take(text));
        if (out) {
            if (room - count < encoded.count) return {0, InsufficientBuffer};
            for (std::size_t i = 0; i < encoded.count; ++i)
                out[count + i] = encoded.units[i];
        }
        count += encoded.count;
    }
    if (count > static_cast<std::size_t>(std::numeric_limits<int>::max())) return {0, InvalidParameter};
    return {static_cast<int>(count), 0};
}

class LinuxTextConversion : public ITextConversion {
public:
    Count Utf8ToWide(std::string_view text, wchar_t* out, std::size_t room) override {
        return Convert<Wide>(text, out, room, TakeUtf8);
    }

    Count WideToUtf8(std::wstring_view text, char* out, std::size_t room) override {
        return Convert<Utf8>(text, out, room, TakeWide);
    }
};

}  // namespace

template <>
ITextConversion& Production<ITextConversion>() {
    return MadeOnce<LinuxTextConversion>();
}

}  // namespace Ombry::Platform
