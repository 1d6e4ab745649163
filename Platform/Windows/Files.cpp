#include "Platform/IFiles.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/FileTime.h"
#include "Platform/Windows/Folder.h"
#include "Platform/Windows/OpenFile.h"
#include "Platform/Windows/TemporaryFile.h"
#include "Platform/Windows/Utf8.h"
#include "Platform/Windows/WidePath.h"

#include <algorithm>
#include <limits>

namespace Ombry::Platform {
namespace {

using Windows::Handle;
using Windows::LastError;

constexpr std::size_t MostAtOnce = 1 << 20;

Result WriteAll(const Handle& file, std::string_view data) {
    while (!data.empty()) {
        DWORD count = 0;
        const auto length = static_cast<DWORD>(std::min(data.size(), MostAtOnce));
        if (!WriteFile(file.Get(), data.data(), length, &count, nullptr)) return LastError();
        if (count == 0) return Result::Failure(ERROR_WRITE_FAULT);
        data.remove_prefix(count);
    }
    return Result::Success();
}

// Everything up to the end of a file, in one piece of memory if it is as long as expected.
ValueOr<std::string> ReadToEnd(const Handle& file, std::size_t expected) {
    // One byte more than expected, so that the end shows without growing once more.
    std::string content(expected + 1, '\0');
    std::size_t length = 0;
    for (;;) {
        if (length == content.size()) content.resize(content.size() * 2);
        const auto room = static_cast<DWORD>(std::min(content.size() - length, MostAtOnce));
        DWORD count = 0;
        if (!ReadFile(file.Get(), content.data() + length, room, &count, nullptr)) return LastError();
        if (count == 0) break;
        length += count;
    }
    content.resize(length);
    return content;
}

// Takes the space by writing, and goes back to the start. `Complete` writes over the NULs.
Result WriteNuls(const Handle& file, std::uint64_t size) {
    const std::string nuls(static_cast<std::size_t>(std::min<std::uint64_t>(size, MostAtOnce)), '\0');
    for (std::uint64_t left = size; left > 0;) {
        const std::uint64_t count = std::min<std::uint64_t>(left, nuls.size());
        const Result result = WriteAll(file, std::string_view(nuls).substr(0, count));
        if (!result) return result;
        left -= count;
    }
    if (!SetFilePointerEx(file.Get(), {}, nullptr, FILE_BEGIN)) return LastError();
    return Result::Success();
}

// Reserves the space of a new file, whose size stays 0: there is never a file of NULs for a power cut to
// leave behind. Where the system cannot do that, the NULs are written all the same, so that a full disk
// shows here.
Result Reserve(const Handle& file, std::uint64_t size) {
    if (size == 0) return Result::Success();
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return Result::Failure(ERROR_FILE_TOO_LARGE);
    }
    FILE_ALLOCATION_INFO wanted{};
    wanted.AllocationSize.QuadPart = static_cast<std::int64_t>(size);
    if (SetFileInformationByHandle(file.Get(), FileAllocationInfo, &wanted, sizeof wanted)) {
        return Result::Success();
    }
    const Result failure = LastError();
    return Windows::MeansUnsupported(failure.Error()) ? WriteNuls(file, size) : failure;
}

// Opens the folder of a path for a change that has to be on the disk. Gives no handle if it need not.
ValueOr<Handle> FolderToFlush(const std::wstring& path, Durability durability) {
    if (durability == Durability::Unsynced) return Handle();
    return Windows::OpenToFlush(Windows::ParentOf(path));
}

Result FlushIfOpen(const Handle& folder) {
    return folder ? Windows::Flush(folder) : Result::Success();
}

// Why the file at a path may not be written to; success also if there is none.
Result CheckWritable(const std::wstring& path) {
    const auto file = Windows::Open(path, FILE_READ_ATTRIBUTES);
    if (!file) {
        return file.Error() == ERROR_FILE_NOT_FOUND ? Result::Success() : Result::Failure(file.Error());
    }
    if (const Result result = Windows::CheckRegular(*file); !result) return result;
    return Windows::CheckReplaceable(*file);
}

class WindowsFileReplacement : public IFileReplacement {
public:
    WindowsFileReplacement(std::wstring path, std::uint64_t size, Windows::TemporaryFile temporary,
                           Handle folder)
        : path(std::move(path)), size(size), temporary(std::move(temporary)), folder(std::move(folder)) {}

    Result Complete(std::string_view data) override {
        if (data.size() != size || completed) return Result::Failure(ERROR_INVALID_PARAMETER);
        completed = true;
        if (const Result result = WriteAll(temporary.File(), data); !result) return result;
        // Of caches, too: a name that is on the disk ahead of the content stands for an empty file, or for
        // half of one, which its readers would stumble over.
        if (const Result result = Windows::Flush(temporary.File()); !result) return result;
        if (const Result result = temporary.RenameTo(path); !result) {
            refused = true;
            return result;
        }
        return FlushIfOpen(folder);
    }

    bool IsRefused() const override { return refused; }

private:
    const std::wstring path;
    const std::uint64_t size;
    Windows::TemporaryFile temporary;
    Handle folder;  // the one to flush; none if the change need not survive a power cut
    bool completed = false;
    bool refused = false;
};

class WindowsFiles : public IFiles {
public:
    ValueOr<std::string> Read(const std::string& path) override {
        const auto file = OpenRegular(path, GENERIC_READ);
        if (!file) return Result::Failure(file.Error());
        LARGE_INTEGER size{};
        if (!GetFileSizeEx(file->Get(), &size)) return LastError();
        return ReadToEnd(*file, static_cast<std::size_t>(size.QuadPart));
    }

    ValueOr<FileState> State(const std::string& path) override {
        const auto file = OpenRegular(path, FILE_READ_ATTRIBUTES);
        if (!file) return Result::Failure(file.Error());
        BY_HANDLE_FILE_INFORMATION found{};
        FILE_BASIC_INFO times{};
        if (!GetFileInformationByHandle(file->Get(), &found) ||
            !GetFileInformationByHandleEx(file->Get(), FileBasicInfo, &times, sizeof times)) {
            return LastError();
        }
        // A file system that does not keep the time of the last change of any kind gives none.
        const std::int64_t changed =
            times.ChangeTime.QuadPart != 0 ? times.ChangeTime.QuadPart : times.LastWriteTime.QuadPart;
        return FileState{.device = found.dwVolumeSerialNumber,
                         .file = std::uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow,
                         .size = std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow,
                         .changed = Windows::TimeOf(changed)};
    }

    ValueOr<std::unique_ptr<IFileReplacement>> BeginReplace(const std::string& path, std::uint64_t size,
                                                            Durability durability) override {
        auto target = Windows::WidePath(path);
        if (!target) return Result::Failure(target.Error());
        if (const Result result = CheckWritable(*target); !result) return result;
        auto folder = FolderToFlush(*target, durability);
        if (!folder) return Result::Failure(folder.Error());
        auto temporary = Windows::TemporaryFile::CreateBeside(*target);
        if (!temporary) return Result::Failure(temporary.Error());
        if (const Result result = Reserve(temporary->File(), size); !result) return result;
        return std::unique_ptr<IFileReplacement>(std::make_unique<WindowsFileReplacement>(
            std::move(*target), size, std::move(*temporary), std::move(*folder)));
    }

    Result Remove(const std::string& path, Durability durability) override {
        const auto target = Windows::WidePath(path);
        if (!target) return Result::Failure(target.Error());
        const auto folder = FolderToFlush(*target, durability);
        // What cannot be flushed goes all the same: who removes a secret must not find it still there.
        if (const Result result = RemoveAt(*target); !result) return result;
        return folder ? FlushIfOpen(*folder) : Result::Failure(folder.Error());
    }

    Result Rename(const std::string& from, const std::string& to) override {
        const auto source = Windows::WidePath(from);
        if (!source) return Result::Failure(source.Error());
        const auto target = Windows::WidePath(to);
        if (!target) return Result::Failure(target.Error());
        const auto file = Windows::Open(*source, DELETE | FILE_READ_ATTRIBUTES);
        if (!file) return Result::Failure(file.Error());
        return Windows::RenameTo(*file, *target);
    }

    ValueOr<std::vector<std::string>> List(const std::string& directory) override {
        const auto folder = Windows::WidePath(directory);
        if (!folder) return Result::Failure(folder.Error());
        const auto found = Windows::NamesIn(*folder);
        if (!found) return Result::Failure(found.Error());
        std::vector<std::string> names;
        for (const std::wstring& name : *found)
            names.push_back(Windows::Utf8(name));
        return names;
    }

    Result CreateDirectories(const std::string& directory, Durability durability) override {
        // In front of the solidus of "C:/file" stands "C:", by which the root of the drive is meant here.
        const bool isDrive = directory.size() == 2 && directory[1] == ':';
        const auto path = Windows::WidePath(isDrive ? directory + '/' : directory);
        if (!path) return Result::Failure(path.Error());
        if (Windows::CheckFolder(*path)) return Result::Success();
        std::size_t end = Windows::EndOfRoot(*path);
        while (end < path->size()) {
            end = std::min(path->find(L'\\', end + 1), path->size());
            if (const Result result = MakeFolder(path->substr(0, end), durability); !result) return result;
        }
        return Windows::CheckFolder(*path);
    }

private:
    static ValueOr<Handle> OpenRegular(const std::string& path, DWORD access) {
        const auto wide = Windows::WidePath(path);
        if (!wide) return Result::Failure(wide.Error());
        auto file = Windows::Open(*wide, access);
        if (!file) return file;
        const Result result = Windows::CheckRegular(*file);
        return result ? std::move(file) : ValueOr<Handle>(result);
    }

    // The name goes when this closes the file, and so ahead of any flush of its folder.
    static Result RemoveAt(const std::wstring& path) {
        const auto file = Windows::Open(path, DELETE | FILE_READ_ATTRIBUTES);
        if (!file) return Result::Failure(file.Error());
        const Result result = Windows::CheckReplaceable(*file);
        return result ? Windows::Remove(*file) : result;
    }

    static Result MakeFolder(const std::wstring& path, Durability durability) {
        const auto made = Windows::MakeFolder(path);
        if (!made) return Result::Failure(made.Error());
        if (!*made) return Result::Success();
        const auto parent = FolderToFlush(path, durability);
        return parent ? FlushIfOpen(*parent) : Result::Failure(parent.Error());
    }
};

}  // namespace

template <>
IFiles& Production<IFiles>() {
    return MadeOnce<WindowsFiles>();
}

}  // namespace Ombry::Platform
