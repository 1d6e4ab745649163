#include "Platform/Windows/Folder.h"

#include "Platform/Windows/OpenFile.h"
#include "Platform/Windows/PrivateAccess.h"

#include <memory>
#include <string_view>

namespace Ombry::Platform::Windows {
namespace {

struct CloseSearch {
    using pointer = HANDLE;
    void operator()(HANDLE search) const { FindClose(search); }
};

}  // namespace

Result CheckFolder(const std::wstring& path) {
    const auto folder = OpenBehindLinks(path, FILE_READ_ATTRIBUTES);
    if (!folder) return Result::Failure(folder.Error());
    FILE_BASIC_INFO information{};
    if (!GetFileInformationByHandleEx(folder->Get(), FileBasicInfo, &information, sizeof information)) {
        return LastError();
    }
    const bool isFolder = information.FileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    return isFolder ? Result::Success() : Result::Failure(ERROR_DIRECTORY);
}

ValueOr<bool> MakeFolder(const std::wstring& path) {
    const auto access = PrivateAccess::ToFolder();
    if (!access) return Result::Failure(access.Error());
    SECURITY_ATTRIBUTES attributes = access->Attributes();
    if (CreateDirectoryW(path.c_str(), &attributes)) return true;
    const Result failure = LastError();
    const Result found = CheckFolder(path);
    if (found) return false;
    if (failure.Error() != ERROR_ALREADY_EXISTS) return failure;
    // What stands there is no folder, or cannot be looked at; a link that leads nowhere is the former.
    return found.Error() == ERROR_FILE_NOT_FOUND ? Result::Failure(ERROR_DIRECTORY) : found;
}

ValueOr<Handle> OpenToFlush(const std::wstring& folder) {
    return OpenBehindLinks(folder, GENERIC_WRITE);
}

ValueOr<std::vector<std::wstring>> NamesIn(const std::wstring& folder) {
    if (const Result result = CheckFolder(folder); !result) return result;
    const std::wstring all = PathIn(folder, L"*");
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW entry;
    const HANDLE first = FindFirstFileExW(all.c_str(), FindExInfoBasic, &entry, FindExSearchNameMatch,
                                          nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (first == INVALID_HANDLE_VALUE) {
        // The root of a drive has no "." and "..", so that it can be empty.
        return GetLastError() == ERROR_FILE_NOT_FOUND ? names
                                                      : ValueOr<std::vector<std::wstring>>(LastError());
    }
    const std::unique_ptr<HANDLE, CloseSearch> search(first);
    do {
        const std::wstring_view name = entry.cFileName;
        if (name != L"." && name != L"..") names.emplace_back(name);
    } while (FindNextFileW(search.get(), &entry));
    if (GetLastError() != ERROR_NO_MORE_FILES) return LastError();
    return names;
}

std::wstring PathIn(const std::wstring& folder, const std::wstring& name) {
    return folder.back() == L'\\' ? folder + name : folder + L"\\" + name;
}

}  // namespace Ombry::Platform::Windows
