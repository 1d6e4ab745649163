#include "Platform/Windows/TemporaryFile.h"

#include "Platform/IRandom.h"
#include "Platform/MadeOnce.h"
#include "Platform/TemporaryName.h"
#include "Platform/Windows/Folder.h"
#include "Platform/Windows/PrivateAccess.h"
#include "Platform/Windows/WidePath.h"

#include <array>
#include <mutex>
#include <set>
#include <string_view>

namespace Ombry::Platform::Windows {
namespace {

constexpr std::wstring_view HexDigits = L"0123456789abcdef";
constexpr int MostTries = 100;

std::wstring NameOf(const std::array<std::uint8_t, TemporaryNameDigits / 2>& chance) {
    std::wstring name(TemporaryNameBegin.begin(), TemporaryNameBegin.end());
    for (const std::uint8_t byte : chance) {
        name += HexDigits[byte >> 4];
        name += HexDigits[byte & 0xF];
    }
    return name.append(TemporaryNameEnd.begin(), TemporaryNameEnd.end());
}

// Makes a file that others may read alone, so that the right to remove it cannot be had beside this handle.
ValueOr<Handle> CreatePrivate(const std::wstring& path, SECURITY_ATTRIBUTES access) {
    Handle file(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, &access, CREATE_NEW,
                            FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file) return LastError();
    return file;
}

// Whoever made the file has it open as long as he lives, and then this one does not open.
void RemoveIfAbandoned(const std::wstring& path) {
    const Handle file(CreateFileW(path.c_str(), DELETE | FILE_READ_ATTRIBUTES, ShareAll, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (file && CheckRegular(file)) static_cast<void>(Remove(file));
}

struct VisitedFolders {
    std::mutex mutex;
    std::set<std::wstring> folders;  // guarded by mutex
};

}  // namespace

ValueOr<TemporaryFile> TemporaryFile::CreateBeside(const std::wstring& target) {
    const std::wstring folder = ParentOf(target);
    RemoveLeftoversOnce(folder);
    const auto access = PrivateAccess::ToFile();
    if (!access) return Result::Failure(access.Error());
    for (int tries = 0; tries < MostTries; ++tries) {
        std::array<std::uint8_t, TemporaryNameDigits / 2> chance{};
        if (const Result result = Production<IRandom>().Bytes(chance); !result) return result;
        auto file = CreatePrivate(PathIn(folder, NameOf(chance)), access->Attributes());
        if (file) return TemporaryFile(std::move(*file));
        if (file.Error() != ERROR_FILE_EXISTS) return Result::Failure(file.Error());
    }
    return Result::Failure(ERROR_FILE_EXISTS);
}

Result TemporaryFile::RenameTo(const std::wstring& target) {
    const Result result = Windows::RenameTo(file, target);
    if (result) file.Close();
    return result;
}

void RemoveLeftovers(const std::wstring& folder) {
    const auto names = NamesIn(folder);
    if (!names) return;
    for (const std::wstring& name : *names) {
        if (IsTemporaryName<wchar_t>(name)) RemoveIfAbandoned(PathIn(folder, name));
    }
}

void RemoveLeftoversOnce(const std::wstring& folder) {
    VisitedFolders& visited = MadeOnce<VisitedFolders>();
    {
        const std::lock_guard guard(visited.mutex);
        if (!visited.folders.insert(folder).second) return;
    }
    RemoveLeftovers(folder);
}

}  // namespace Ombry::Platform::Windows
