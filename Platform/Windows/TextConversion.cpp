#include "Platform/ITextConversion.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"

#include <algorithm>
#include <limits>

namespace Ombry::Platform {
namespace {

constexpr std::size_t Most = std::numeric_limits<int>::max();

class WindowsTextConversion : public ITextConversion {
public:
    Count Utf8ToWide(std::string_view text, wchar_t* out, std::size_t room) override {
        return Convert(text, out, room, [&](int length, int places) {
            return MultiByteToWideChar(CP_UTF8, 0, text.data(), length, out, places);
        });
    }

    Count WideToUtf8(std::wstring_view text, char* out, std::size_t room) override {
        return Convert(text, out, room, [&](int length, int places) {
            return WideCharToMultiByte(CP_UTF8, 0, text.data(), length, out, places, nullptr, nullptr);
        });
    }

private:
    template <class View, class Character, class Call>
    static Count Convert(View text, Character* out, std::size_t room, Call call) {
        if (text.size() > Most) return {0, ERROR_INVALID_PARAMETER};
        const int length = static_cast<int>(text.size());
        // No room is a buffer that is too small; the system would take it for the wish to measure.
        if (out && room == 0 && length != 0) return {0, ERROR_INSUFFICIENT_BUFFER};
        const int count = call(length, out ? static_cast<int>(std::min(room, Most)) : 0);
        return count > 0 ? Count{count, 0} : Count{0, static_cast<int>(GetLastError())};
    }
};

}  // namespace

template <>
ITextConversion& Production<ITextConversion>() {
    return MadeOnce<WindowsTextConversion>();
}

}  // namespace Ombry::Platform
