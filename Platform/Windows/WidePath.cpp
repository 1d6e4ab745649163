#include "Platform/Windows/WidePath.h"

#include "Platform/Windows/Api.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

namespace Ombry::Platform::Windows {
namespace {

constexpr wchar_t Separator = L'\\';
constexpr std::wstring_view DrivePrefix = L"\\\\?\\";
constexpr std::wstring_view SharePrefix = L"\\\\?\\UNC\\";

Result InvalidName() {
    return Result::Failure(ERROR_INVALID_NAME);
}

ValueOr<std::wstring> ToUnits(const std::string& path) {
    if (path.empty()) return Result::Failure(ERROR_PATH_NOT_FOUND);
    if (path.size() > std::numeric_limits<int>::max()) return InvalidName();
    const int length = static_cast<int>(path.size());
    std::wstring units(path.size(), L'\0');  // never more units than bytes
    const int count =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), length, units.data(), length);
    if (count < 1) return LastError();
    units.resize(static_cast<std::size_t>(count));
    return units;
}

bool EqualsIgnoringCase(std::wstring_view left, std::wstring_view right) {
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

// Whether the system has at some time taken the name for a device, in whatever folder. What stands behind a
// point plays no part, nor do blanks in front of it.
bool IsReserved(std::wstring_view name) {
    name = name.substr(0, name.find(L'.'));
    name = name.substr(0, name.find_last_not_of(L' ') + 1);
    constexpr std::array<std::wstring_view, 6> devices{L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
    const auto names = [&](std::wstring_view device) { return EqualsIgnoringCase(name, device); };
    if (std::any_of(devices.begin(), devices.end(), names)) return true;
    // Ports have the numbers 1 to 9, of which the first three may be raised, too.
    constexpr std::wstring_view numbers = L"123456789\u00B9\u00B2\u00B3";
    return name.size() == 4 && numbers.find(name[3]) != std::wstring_view::npos &&
           (EqualsIgnoringCase(name.substr(0, 3), L"COM") || EqualsIgnoringCase(name.substr(0, 3), L"LPT"));
}

bool IsUsable(std::wstring_view name) {
    if (name == L"." || name == L"..") return true;
    const auto isForbidden = [](wchar_t unit) {
        return unit < L' ' || std::wstring_view(L"<>:\"|?*").find(unit) != std::wstring_view::npos;
    };
    return std::none_of(name.begin(), name.end(), isForbidden) && name.back() != L'.' &&
           name.back() != L' ' && !IsReserved(name);
}

bool BeginsWithDrive(std::wstring_view path) {
    const auto isLetter = [](wchar_t unit) {
        return (unit >= L'A' && unit <= L'Z') || (unit >= L'a' && unit <= L'z');
    };
    return path.size() >= 3 && isLetter(path[0]) && path[1] == L':' && path[2] == Separator;
}

bool HasUsableNames(std::wstring_view path) {
    if (BeginsWithDrive(path)) path.remove_prefix(2);
    while (!path.empty()) {
        const std::wstring_view name = path.substr(0, path.find(Separator));
        if (!name.empty() && !IsUsable(name)) return false;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return true;
}

ValueOr<std::wstring> Absolute(const std::wstring& path) {
    std::wstring absolute;
    // Another thread may set another current folder between two calls, so that the room is too small again.
    for (DWORD room = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);;) {
        if (room == 0) return LastError();
        absolute.resize(room);
        const DWORD needed = GetFullPathNameW(path.c_str(), room, absolute.data(), nullptr);
        if (needed < room && needed != 0) {
            absolute.resize(needed);
            return absolute;
        }
        room = needed;
    }
}

}  // namespace

ValueOr<std::wstring> WidePath(const std::string& path) {
    auto units = ToUnits(path);
    if (!units) return units;
    std::replace(units->begin(), units->end(), L'/', Separator);
    if (!HasUsableNames(*units)) return InvalidName();
    auto absolute = Absolute(*units);
    if (!absolute) return absolute;
    std::wstring_view rest = *absolute;
    while (rest.size() > 3 && rest.back() == Separator)
        rest.remove_suffix(1);
    if (BeginsWithDrive(rest)) return std::wstring(DrivePrefix).append(rest);
    const bool isShare = rest.starts_with(L"\\\\") && !rest.starts_with(L"\\\\.");
    return isShare ? std::wstring(SharePrefix).append(rest.substr(2)) : ValueOr<std::wstring>(InvalidName());
}

std::wstring ParentOf(const std::wstring& path) {
    const std::size_t separator = path.rfind(Separator);
    return path.substr(0, std::max(separator, EndOfRoot(path)));
}

std::size_t EndOfRoot(const std::wstring& path) {
    if (!path.starts_with(SharePrefix)) return DrivePrefix.size() + 3;
    const std::size_t share = path.find(Separator, SharePrefix.size());
    return share == std::wstring::npos ? path.size() : std::min(path.find(Separator, share + 1), path.size());
}

}  // namespace Ombry::Platform::Windows
