#include "Platform/Windows/OpenFile.h"

#include "Platform/IClock.h"

#include <cstddef>
#include <cstring>
#include <vector>

namespace Ombry::Platform::Windows {
namespace {

// By their numbers: some sets of headers have the names for a later system only.
constexpr auto DispositionEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);  // FileDispositionInfoEx
constexpr auto RenameEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);       // FileRenameInfoEx

// Scanners, indexers and readers hold a file for moments. The waits double, and end after two seconds.
constexpr Duration FirstWait = std::chrono::milliseconds(1);
constexpr Duration LastWait = std::chrono::milliseconds(1024);

// Whether somebody has opened a file in a way that leaves no room for others.
bool MeansLocked(int error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
}

// Whether the target of a rename may be in use; the system says the same of one that may not be replaced.
bool MeansInUse(int error) {
    return MeansLocked(error) || error == ERROR_ACCESS_DENIED || error == ERROR_DELETE_PENDING ||
           error == ERROR_USER_MAPPED_FILE;
}

// Repeats `call`, which gives a result, as long as its failure may be one of the moment.
template <class Call>
Result WaitWhile(bool (*passes)(int error), Call call) {
    Result result = call();
    for (Duration wait = FirstWait; !result && passes(result.Error()) && wait <= LastWait; wait *= 2) {
        // The real clock, also where a test moves another one: whoever holds the file lives in real time.
        Production<IClock>().Sleep(wait);
        result = call();
    }
    return result;
}

Result CheckReplaceable(DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return Result::Failure(ErrorIsFolder);
    if (attributes & FILE_ATTRIBUTE_READONLY) return Result::Failure(ERROR_FILE_READ_ONLY);
    return Result::Success();
}

// The same for what stands at a path, if anything that can be looked at does.
Result CheckReplaceable(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes == INVALID_FILE_ATTRIBUTES ? Result::Success() : CheckReplaceable(attributes);
}

ValueOr<DWORD> AttributesOf(const Handle& file) {
    FILE_BASIC_INFO information{};
    if (!GetFileInformationByHandleEx(file.Get(), FileBasicInfo, &information, sizeof information)) {
        return LastError();
    }
    return information.FileAttributes;
}

ValueOr<Handle> OpenAsSoonAsFree(const std::wstring& path, DWORD access, DWORD flags) {
    Handle file;
    const Result result = WaitWhile(MeansLocked, [&] {
        // A folder opens as well, so that what it is shows the same way on every system.
        file = Handle(CreateFileW(path.c_str(), access, ShareAll, nullptr, OPEN_EXISTING,
                                  flags | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        return file ? Result::Success() : LastError();
    });
    if (!result) return result;
    return file;
}

template <class Information>
Result Set(const Handle& file, FILE_INFO_BY_HANDLE_CLASS what, Information& information, std::size_t size) {
    if (!SetFileInformationByHandle(file.Get(), what, &information, static_cast<DWORD>(size))) {
        return LastError();
    }
    return Result::Success();
}

class RenameRequest {
public:
    explicit RenameRequest(const std::wstring& target)
        : size(sizeof(FILE_RENAME_INFO) + target.size() * sizeof(wchar_t)),
          words(size / sizeof(std::uint64_t) + 1) {
        Information().FileNameLength = static_cast<DWORD>(target.size() * sizeof(wchar_t));
        std::memcpy(Information().FileName, target.c_str(), (target.size() + 1) * sizeof(wchar_t));
    }

    // Tries once: so that whoever has the target open keeps it, or else as older file systems can.
    Result Try(const Handle& file) {
        Information().Flags = FILE_RENAME_FLAG_REPLACE_IF_EXISTS | FILE_RENAME_FLAG_POSIX_SEMANTICS;
        const Result result = Set(file, RenameEx, Information(), size);
        if (result || !MeansUnsupported(result.Error())) return result;
        Information().Flags = 0;
        Information().ReplaceIfExists = TRUE;
        return Set(file, FileRenameInfo, Information(), size);
    }

private:
    FILE_RENAME_INFO& Information() { return *reinterpret_cast<FILE_RENAME_INFO*>(words.data()); }

    const std::size_t size;
    std::vector<std::uint64_t> words;  // of the alignment that the record has
};

}  // namespace

ValueOr<Handle> Open(const std::wstring& path, DWORD access) {
    return OpenAsSoonAsFree(path, access, FILE_FLAG_OPEN_REPARSE_POINT);
}

ValueOr<Handle> OpenBehindLinks(const std::wstring& path, DWORD access) {
    return OpenAsSoonAsFree(path, access, 0);
}

Result CheckRegular(const Handle& file) {
    if (GetFileType(file.Get()) != FILE_TYPE_DISK) return Result::Failure(ERROR_BAD_FILE_TYPE);
    const auto attributes = AttributesOf(file);
    if (!attributes) return Result::Failure(attributes.Error());
    if (*attributes & FILE_ATTRIBUTE_REPARSE_POINT) return Result::Failure(ERROR_CANT_ACCESS_FILE);
    if (*attributes & FILE_ATTRIBUTE_DIRECTORY) return Result::Failure(ErrorIsFolder);
    return Result::Success();
}

Result CheckReplaceable(const Handle& file) {
    const auto attributes = AttributesOf(file);
    return attributes ? CheckReplaceable(*attributes) : Result::Failure(attributes.Error());
}

Result RenameTo(const Handle& file, const std::wstring& target) {
    RenameRequest request(target);
    return WaitWhile(MeansInUse, [&] {
        const Result replaceable = CheckReplaceable(target);
        return replaceable ? request.Try(file) : replaceable;
    });
}

Result Remove(const Handle& file) {
    FILE_DISPOSITION_INFO_EX atOnce{FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS};
    const Result result = Set(file, DispositionEx, atOnce, sizeof atOnce);
    if (result || !MeansUnsupported(result.Error())) return result;
    FILE_DISPOSITION_INFO withTheLastHandle{TRUE};
    return Set(file, FileDispositionInfo, withTheLastHandle, sizeof withTheLastHandle);
}

Result Flush(const Handle& file) {
    if (FlushFileBuffers(file.Get())) return Result::Success();
    const Result failure = LastError();
    return MeansUnsupported(failure.Error()) ? Result::Success() : failure;
}

bool MeansUnsupported(int error) {
    return error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED ||
           error == ERROR_INVALID_PARAMETER || error == ERROR_INVALID_LEVEL ||
           error == ERROR_CALL_NOT_IMPLEMENTED;
}

}  // namespace Ombry::Platform::Windows
