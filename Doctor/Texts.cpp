#include "Doctor/Texts.h"

#include "ObjectMapping/DateTime.h"
#include "Platform/ITextConversion.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace Ombry::Doctor {
namespace {

bool IsPlain(char c) {
    constexpr std::string_view others = "/._-+:=@%,";
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || others.find(c) != std::string_view::npos;
}

bool IsVisible(char c) {
    return c >= ' ' && c <= '~';
}

// Bytes that are no visible letters, as bash reads them between $' and '.
std::string Escaped(const std::string& text) {
    constexpr char digits[] = "0123456789abcdef";
    std::string quoted = "$'";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\'' || c == '\\') {
            quoted += {'\\', c};
        } else if (IsVisible(c)) {
            quoted += c;
        } else {
            quoted += {'\\', 'x', digits[byte >> 4], digits[byte & 0x0F]};
        }
    }
    return quoted + "'";
}

// Through wide text, where `change` is shown each unit.
template <class Change>
std::string Rewritten(const std::string& text, Change change) {
    Platform::ITextConversion& conversion = Platform::TextConversion();
    std::wstring wide(text.size(), L'\0');  // never more units than bytes
    const auto units = conversion.Utf8ToWide(text, wide.data(), wide.size());
    wide.resize(static_cast<std::size_t>(std::max(units.count, 0)));
    for (wchar_t& unit : wide)
        change(unit);
    std::string shown(wide.size() * 4, '\0');  // never more than four bytes for a unit
    const auto bytes = conversion.WideToUtf8(wide, shown.data(), shown.size());
    shown.resize(static_cast<std::size_t>(std::max(bytes.count, 0)));
    return shown;
}

}  // namespace

std::string Quoted(const std::string& text) {
    // A word that begins with a hyphen stays one for its reader; callers put "--" in front of paths.
    if (!text.empty() && text.front() != '~' && std::all_of(text.begin(), text.end(), IsPlain)) return text;
    if (!std::all_of(text.begin(), text.end(), IsVisible)) return Escaped(text);
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string Printable(const std::string& text) {
    if (std::all_of(text.begin(), text.end(), IsVisible)) return text;
    return Rewritten(text, [](wchar_t& unit) {
        const bool controls = unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x2028 ||
                              unit == 0x2029 || (unit >= 0x200B && unit <= 0x200F) ||
                              (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
        if (controls) unit = 0xFFFD;
    });
}

std::string Utf8Of(const std::string& text) {
    if (std::all_of(text.begin(), text.end(), IsVisible)) return text;
    return Rewritten(text, [](wchar_t&) {});
}

std::string LengthText(Duration length) {
    const long long seconds = length.count() / TicksPerSecond;
    constexpr long long minute = 60, hour = 60 * minute, day = 24 * hour;
    if (seconds < 2 * minute) return std::to_string(seconds) + " s";
    if (seconds < 2 * hour) return std::to_string(seconds / minute) + " min";
    if (seconds < 2 * day) return std::to_string(seconds / hour) + " h";
    return std::to_string(seconds / day) + " days";
}

std::string TimeText(TimePoint time) {
    std::string text = ObjectMapping::FormatDateTime(time);
    const std::size_t fraction = text.find('.');
    if (fraction != std::string::npos) text.replace(fraction, std::string::npos, "Z");
    return text;
}

std::string CountText(std::size_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace Ombry::Doctor
