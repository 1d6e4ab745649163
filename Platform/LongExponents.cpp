#include "Platform/LongExponents.h"

#include <algorithm>

namespace Ombry::Platform {
namespace {

constexpr std::ptrdiff_t MaxDigits = 9;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsE(char c) {
    return c == 'e' || c == 'E';
}

// The digits of an exponent behind its 'e', without its sign and the zeros ahead.
struct Exponent {
    explicit Exponent(const char* behindE) : begin(behindE) {
        if (*begin == '+' || *begin == '-') ++begin;
        while (*begin == '0')
            ++begin;
        for (end = begin; IsDigit(*end);)
            ++end;
    }
    bool IsLong() const { return end - begin > MaxDigits; }

    const char* begin;
    const char* end;
};

}  // namespace

bool HasLongExponent(const char* text) noexcept {
    while (IsDigit(*text) || *text == '-' || *text == '.')
        ++text;
    return IsE(*text) && Exponent(text + 1).IsLong();
}

void CutLongExponents(std::string& text) noexcept {
    bool isInString = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '"') {
            isInString = !isInString;
        } else if (isInString) {
            if (text[at] == '\\') ++at;
        } else if (IsE(text[at])) {
            const Exponent exponent(text.c_str() + at + 1);
            if (!exponent.IsLong()) continue;
            const auto begin = text.begin() + (exponent.begin - text.c_str());
            const auto end = text.begin() + (exponent.end - text.c_str());
            std::fill(begin, end - MaxDigits, '0');
            std::fill(end - MaxDigits, end, '9');
        }
    }
}

}  // namespace Ombry::Platform
