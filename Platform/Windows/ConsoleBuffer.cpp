#include "Platform/Windows/ConsoleBuffer.h"

#include "Platform/Windows/Utf8.h"

#include <algorithm>

namespace Ombry::Platform::Windows {
namespace {

// The length of a text less what may be the beginning of a character at its end.
std::size_t LengthOfWhole(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, text.size()); ++back) {
        const unsigned char lead = byte(text.size() - back);
        if (lead < 0x80) break;
        if (lead < 0xC0) continue;
        const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        return back < length ? text.size() - back : text.size();
    }
    return text.size();
}

}  // namespace

ConsoleBuffer::int_type ConsoleBuffer::overflow(int_type byte) {
    if (traits_type::eq_int_type(byte, traits_type::eof())) return traits_type::not_eof(byte);
    const char character = traits_type::to_char_type(byte);
    return xsputn(&character, 1) == 1 ? byte : traits_type::eof();
}

std::streamsize ConsoleBuffer::xsputn(const char* text, std::streamsize length) {
    pending.append(text, static_cast<std::size_t>(length));
    const std::size_t whole = LengthOfWhole(pending);
    const bool shown = Show(std::string_view(pending).substr(0, whole));
    pending.erase(0, whole);
    return shown ? length : 0;
}

int ConsoleBuffer::sync() {
    const bool shown = Show(pending);
    pending.clear();
    return shown ? 0 : -1;
}

bool ConsoleBuffer::Show(std::string_view text) const {
    const std::wstring units = Wide(text);
    for (std::wstring_view left = units; !left.empty();) {
        std::size_t length = std::min(left.size(), MostUnits);
        const bool endsWithinPair = left[length - 1] >= 0xD800 && left[length - 1] <= 0xDBFF;
        if (length < left.size() && endsWithinPair) --length;
        const std::size_t shown = console(left.substr(0, length));
        if (shown == 0) return false;
        left.remove_prefix(shown);
    }
    return true;
}

}  // namespace Ombry::Platform::Windows
