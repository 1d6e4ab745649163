#include "Platform/IFiles.h"
#include "Platform/Windows/Folder.h"
#include "Platform/Windows/OpenFile.h"
#include "Platform/Windows/PrivateAccess.h"
#include "Platform/Windows/TemporaryFile.h"
#include "Platform/Windows/WidePath.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Windows/HeldFile.h"
#include "tests/Platform/Windows/SecondProcess.h"

#include <gmock/gmock.h>

#include <aclapi.h>
#include <sddl.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <limits>
#include <thread>

namespace Ombry::Tests {
namespace {

using Platform::Durability;
using Platform::Windows::WidePath;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class FilesTest : public testing::Test {
protected:
    Platform::Result Save(const std::string& path, const std::string& data,
                          Durability durability = Durability::Unsynced) {
        auto replacement = files.BeginReplace(path, data.size(), durability);
        if (!replacement) return Platform::Result::Failure(replacement.Error());
        return (*replacement)->Complete(data);
    }

    std::vector<std::string> Names() { return *files.List(directory.Path()); }

    void Mark(const std::string& path, DWORD attributes) {
        ASSERT_TRUE(SetFileAttributesW(WidePath(path)->c_str(), attributes));
    }

    /// Whether the work succeeds although somebody else has what it needs when it begins.
    static bool IsDoneBehind(const std::string& path, const std::function<bool()>& work) {
        HeldFile scanner(path, 0);
        std::atomic<bool> begun = false;
        bool done = false;
        std::thread worker([&] {
            begun = true;
            done = work();
        });
        while (!begun)
            std::this_thread::yield();
        // Time for the first try, which must not be the last, and far from enough for the last.
        for (const auto start = std::chrono::steady_clock::now();
             std::chrono::steady_clock::now() - start < std::chrono::milliseconds(20);)
            std::this_thread::yield();
        scanner.Release();
        worker.join();
        return done;
    }

    TemporaryDirectory directory;
    Platform::IFiles& files = Platform::Production<Platform::IFiles>();
};

/// Whether the system can do such a thing to a file that is open.
template <class Information>
bool Can(int what, Information information, const std::string& scratch) {
    const Platform::Windows::Handle file(CreateFileW(WidePath(scratch)->c_str(), GENERIC_WRITE | DELETE,
                                                     ShareAll, nullptr, CREATE_ALWAYS, 0, nullptr));
    const bool can = SetFileInformationByHandle(file.Get(), static_cast<FILE_INFO_BY_HANDLE_CLASS>(what),
                                                &information, sizeof information);
    static_cast<void>(Platform::Windows::Remove(file));
    return can;
}

/// A rename that leaves whoever has the target open what he has.
struct RenameAtOnce {
    explicit RenameAtOnce(const std::string& target) {
        const std::wstring path = *WidePath(target);
        information.Flags = FILE_RENAME_FLAG_REPLACE_IF_EXISTS | FILE_RENAME_FLAG_POSIX_SEMANTICS;
        information.FileNameLength = static_cast<DWORD>(path.size() * sizeof(wchar_t));
        std::memcpy(information.FileName, path.c_str(), information.FileNameLength);
    }

    FILE_RENAME_INFO information{};
    wchar_t restOfTheName[MAX_PATH]{};
};

// Files that others have open.

TEST_F(FilesTest, ReaderThatNeverLetsGoKeepsTheOldFileAndIsInNobodysWay) {
    if (!Can(21, FILE_DISPOSITION_INFO_EX{FILE_DISPOSITION_FLAG_POSIX_SEMANTICS}, directory / "scratch") ||
        !Can(22, RenameAtOnce(directory / "renamed"), directory / "scratch")) {
        return LeaveOut("this system cannot replace a file that is open");
    }
    const std::string path = directory.Write("file", "old");
    const HeldFile reader(path, ShareAll);
    EXPECT_TRUE(Save(path, "new"));
    EXPECT_EQ(*files.Read(path), "new");
    const HeldFile another(path, ShareAll);
    EXPECT_TRUE(files.Remove(path, Durability::Synced));
    EXPECT_THAT(Names(), IsEmpty());
    EXPECT_EQ(reader.Read(), "old");
    EXPECT_EQ(another.Read(), "new");
}

TEST_F(FilesTest, ReaderKeepsTheOldFileWhileItIsReplaced) {
    for (const Durability durability : {Durability::Synced, Durability::Unsynced}) {
        const std::string path = directory.Write("file", "old");
        HeldFile reader(path, ShareAll);
        bool saved = false;
        std::thread writer([&] { saved = static_cast<bool>(Save(path, "new", durability)); });
        EXPECT_EQ(reader.Read(), "old");
        reader.Release();
        writer.join();
        EXPECT_TRUE(saved);
        EXPECT_EQ(directory.Read("file"), "new");
        EXPECT_THAT(Names(), ElementsAre("file"));
    }
}

TEST_F(FilesTest, FileThatStaysInUseIsNotReplacedAndStandsAsItWas) {
    const std::string path = directory.Write("file", "old");
    const HeldFile scanner(path, FILE_SHARE_READ);
    {
        auto replacement = files.BeginReplace(path, 3, Durability::Unsynced);
        ASSERT_TRUE(replacement);
        EXPECT_FALSE((*replacement)->Complete("new"));
        EXPECT_TRUE((*replacement)->IsRefused());
    }
    EXPECT_EQ(directory.Read("file"), "old");
    EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(FilesTest, FileThatIsScannedIsWaitedFor) {
    const std::string path = directory.Write("file", "old");
    struct Case {
        std::string name;
        std::function<bool()> work;
    };
    const std::vector<Case> cases{
        {"read", [&] { return static_cast<bool>(files.Read(path)); }},
        {"replace", [&] { return static_cast<bool>(Save(path, "new")); }},
        {"rename", [&] { return static_cast<bool>(files.Rename(path, directory / "other")); }},
        {"remove", [&] { return static_cast<bool>(files.Remove(directory / "other", Durability::Synced)); }}};
    for (const Case& one : cases)
        EXPECT_TRUE(IsDoneBehind(one.name == "remove" ? directory / "other" : path, one.work)) << one.name;
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(FilesTest, FolderThatIsScannedIsWaitedFor) {
    const std::string path = directory / "file";
    EXPECT_TRUE(IsDoneBehind(directory.Path(),
                             [&] { return static_cast<bool>(Save(path, "new", Durability::Synced)); }));
    EXPECT_TRUE(IsDoneBehind(directory.Path(), [&] {
        return static_cast<bool>(files.CreateDirectories(directory / "folder", Durability::Synced));
    }));
    EXPECT_TRUE(IsDoneBehind(directory.Path(),
                             [&] { return static_cast<bool>(files.Remove(path, Durability::Synced)); }));
    EXPECT_THAT(Names(), ElementsAre("folder"));
}

TEST_F(FilesTest, WhatIsOpenHereMayBeOpenedReplacedAndRemovedByOthers) {
    const std::string path = directory.Write("file", "data");
    const auto ours = Platform::Windows::Open(*WidePath(path), GENERIC_READ);
    ASSERT_TRUE(ours);
    const Platform::Windows::Handle theirs(CreateFileW(WidePath(path)->c_str(), GENERIC_WRITE | DELETE,
                                                       ShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(theirs);
}

TEST_F(FilesTest, StateOfAFileThatNobodyElseMayReadIsKnown) {
    const std::string path = directory.Write("file", "data");
    const HeldFile scanner(path, 0);
    const auto state = files.State(path);
    ASSERT_TRUE(state);
    EXPECT_EQ(state->size, 4u);
}

// Two processes.

TEST_F(FilesTest, TwoProcessesSaveInOneFolderAtATime) {
    constexpr int rounds = 50;
    const auto saveAll = [&](const std::string& path) {
        for (int i = 0; i < rounds; ++i) {
            EXPECT_TRUE(Save(path, std::string(1000, static_cast<char>('a' + i % 26))));
            const auto content = files.Read(path);
            ASSERT_TRUE(content) << content.Error();
            EXPECT_EQ(*content, std::string(1000, content->front()));
        }
    };
    if (const std::string path = SecondProcess::Message(); !path.empty()) return saveAll(path);
    SecondProcess second(directory / "file");
    saveAll(directory / "file");
    EXPECT_EQ(second.Wait(), 0u);
    EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(FilesTest, FileOfAProcessThatWasKilledIsRemovedByTheFirstSaveOfTheNext) {
    if (const std::string path = SecondProcess::Message(); !path.empty()) {
        const auto begun = files.BeginReplace(path, 3, Durability::Synced);
        TerminateProcess(GetCurrentProcess(), begun ? 77 : 1);
    }
    SecondProcess killed(directory / "file");
    EXPECT_EQ(killed.Wait(), 77u);
    ASSERT_EQ(Names().size(), 1u);

    ASSERT_TRUE(Save(directory / "another", "x"));

    EXPECT_THAT(Names(), ElementsAre("another"));
}

TEST_F(FilesTest, FileOfALivingProcessStays) {
    const auto begun = files.BeginReplace(directory / "file", 3, Durability::Unsynced);
    ASSERT_TRUE(begun);
    if (const std::string folder = SecondProcess::Message(); !folder.empty()) {
        ASSERT_TRUE(Save(folder + "/other", "x"));
        EXPECT_EQ(files.List(folder)->size(), 2u);
        return;
    }
    ASSERT_EQ(Names().size(), 1u);
    const Platform::Windows::Handle toRemove(CreateFileW(WidePath(directory / Names()[0])->c_str(), DELETE,
                                                         ShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FALSE(toRemove);
    SecondProcess other(directory.Path());
    EXPECT_EQ(other.Wait(), 0u);
    EXPECT_TRUE((*begun)->Complete("new"));
    EXPECT_THAT(Names(), UnorderedElementsAre("file", "other"));
}

TEST_F(FilesTest, OnlyFilesWithOurNamesAreRemovedAsLeftovers) {
    for (const std::string name :
         {".0123456789abcdef.tmp", ".ombry-0123456789abcde.tmp", ".ombry-0123456789abcdef0.tmp",
          ".ombry-0123456789ABCDEF.tmp", ".ombry-0123456789abcdeg.tmp", "ombry-1123456789abcdef.tmp",
          ".ombry-2123456789abcdef.tm", "x.ombry-0123456789abcdef.tmp"}) {
        directory.Write(name, "foreign");
    }
    std::filesystem::create_directory(directory / ".ombry-00000000000000d0.tmp");
    const std::size_t foreign = Names().size();
    directory.Write(".ombry-3123456789abcdef.tmp", "ours");
    Platform::Windows::RemoveLeftovers(*WidePath(directory.Path()));
    EXPECT_EQ(Names().size(), foreign);
    EXPECT_FALSE(std::filesystem::exists(directory / ".ombry-3123456789abcdef.tmp"));
}

// Files that are marked read-only.

TEST_F(FilesTest, FileThatIsMarkedReadOnlyIsReadAndNeverChanged) {
    const std::string path = directory.Write("file", "old");
    directory.Write("other", "x");
    Mark(path, FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(*files.Read(path), "old");
    EXPECT_EQ(files.BeginReplace(path, 3, Durability::Synced).Error(), ERROR_FILE_READ_ONLY);
    EXPECT_EQ(files.Remove(path, Durability::Synced).Error(), ERROR_FILE_READ_ONLY);
    EXPECT_EQ(files.Rename(directory / "other", path).Error(), ERROR_FILE_READ_ONLY);
    EXPECT_THAT(Names(), UnorderedElementsAre("file", "other"));
    EXPECT_EQ(directory.Read("file"), "old");
    Mark(path, FILE_ATTRIBUTE_NORMAL);
}

TEST_F(FilesTest, FileThatIsMarkedReadOnlyMeanwhileRefusesItsReplacement) {
    const std::string path = directory.Write("file", "old");
    {
        auto replacement = files.BeginReplace(path, 3, Durability::Synced);
        ASSERT_TRUE(replacement);
        Mark(path, FILE_ATTRIBUTE_READONLY);
        EXPECT_EQ((*replacement)->Complete("new").Error(), ERROR_FILE_READ_ONLY);
        EXPECT_TRUE((*replacement)->IsRefused());
    }
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_EQ(directory.Read("file"), "old");
    Mark(path, FILE_ATTRIBUTE_NORMAL);
}

TEST_F(FilesTest, FolderPutInPlaceMeanwhileFailsTheReplacementAtOnce) {
    {
        auto replacement = files.BeginReplace(directory / "file", 1, Durability::Unsynced);
        ASSERT_TRUE(replacement);
        std::filesystem::create_directory(directory / "file");
        EXPECT_EQ((*replacement)->Complete("x").Error(), Platform::Windows::ErrorIsFolder);
        EXPECT_TRUE((*replacement)->IsRefused());
    }
    EXPECT_THAT(Names(), ElementsAre("file"));
}

// Names and paths.

TEST_F(FilesTest, NameThatTheSystemWouldTakeForAnotherOrForADeviceIsRefusedByEveryOperation) {
    directory.Write("file", "x");
    for (const std::string name :
         {"file.", "file ", "file. .", "CON", "con", "NUL.txt", "COM1", "file:stream", "file::$DATA", "a*",
          "a?", "a\tb", "CON/below", "folder./below"}) {
        const std::string path = directory / name;
        EXPECT_EQ(files.Read(path).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.State(path).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.BeginReplace(path, 1, Durability::Unsynced).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.Remove(path, Durability::Unsynced).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.Rename(path, directory / "to").Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.Rename(directory / "file", path).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.List(path).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(files.CreateDirectories(path, Durability::Unsynced).Error(), ERROR_INVALID_NAME) << name;
    }
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_EQ(directory.Read("file"), "x");
}

TEST_F(FilesTest, FolderOfAFileInTheRootOfADriveIsThere) {
    EXPECT_TRUE(files.CreateDirectories("C:", Durability::Unsynced));
    EXPECT_EQ(files.CreateDirectories("C:a", Durability::Unsynced).Error(), ERROR_INVALID_NAME);
    EXPECT_EQ(files.CreateDirectories("1:", Durability::Unsynced).Error(), ERROR_INVALID_NAME);
}

TEST_F(FilesTest, PathMayBeLongerThanTwoHundredAndSixtyUnits) {
    std::string folder = directory.Path();
    for (int i = 0; i < 10; ++i)
        folder += "/" + std::string(60, static_cast<char>('a' + i));
    EXPECT_TRUE(files.CreateDirectories(folder, Durability::Synced));
    EXPECT_TRUE(Save(folder + "/file", "x", Durability::Synced));
    EXPECT_EQ(*files.Read(folder + "/file"), "x");
    EXPECT_TRUE(files.Rename(folder + "/file", folder + "/other"));
    EXPECT_THAT(*files.List(folder), ElementsAre("other"));
    EXPECT_TRUE(files.Remove(folder + "/other", Durability::Synced));
    EXPECT_THAT(*files.List(folder), IsEmpty());
}

TEST_F(FilesTest, BothSeparatorsLeadToOneFile) {
    EXPECT_TRUE(files.CreateDirectories(directory.Path() + "\\a/b\\c", Durability::Unsynced));
    EXPECT_TRUE(Save(directory / "a\\b/c\\file", "x"));
    EXPECT_EQ(*files.Read(directory / "a/b/c/file"), "x");
    EXPECT_THAT(*files.List(directory / "a\\b\\"), ElementsAre("c"));
}

TEST_F(FilesTest, NamesAreUtf8) {
    const std::string name = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    EXPECT_TRUE(Save(directory / name, "x"));
    EXPECT_THAT(Names(), ElementsAre(name));
    EXPECT_EQ(*files.Read(directory / name), "x");
    EXPECT_EQ(files.Read(directory / "\xFF").Error(), ERROR_NO_UNICODE_TRANSLATION);
}

// Who may use what is made.

/// Whether nobody has access but SYSTEM, Administrators and, where the system keeps no list of its own and
/// gives its owner instead, the owner.
bool IsPrivate(const std::string& path) {
    PSID owner = nullptr;
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const std::wstring wide = *WidePath(path);
    if (GetNamedSecurityInfoW(const_cast<wchar_t*>(wide.c_str()), SE_FILE_OBJECT,
                              OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, nullptr, &list,
                              nullptr, &descriptor) != ERROR_SUCCESS) {
        return false;
    }
    const std::unique_ptr<void, decltype(&LocalFree)> owned(descriptor, &LocalFree);
    if (!list || list->AceCount == 0) return false;
    for (DWORD i = 0; i < list->AceCount; ++i) {
        void* entry = nullptr;
        if (!GetAce(list, i, &entry)) return false;
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        const PSID who = &allowed->SidStart;
        if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE ||
            !(IsWellKnownSid(who, WinLocalSystemSid) || IsWellKnownSid(who, WinBuiltinAdministratorsSid) ||
              EqualSid(who, owner))) {
            return false;
        }
    }
    return true;
}

TEST_F(FilesTest, NewFilesAndFoldersArePrivateFromTheStart) {
    EXPECT_FALSE(IsPrivate(directory.Write("of-others", "x")));
    EXPECT_TRUE(files.CreateDirectories(directory / "a/b", Durability::Unsynced));
    EXPECT_TRUE(IsPrivate(directory / "a"));
    EXPECT_TRUE(IsPrivate(directory / "a/b"));
    auto replacement = files.BeginReplace(directory / "a/file", 3, Durability::Unsynced);
    ASSERT_TRUE(replacement);
    const auto names = files.List(directory / "a");
    ASSERT_EQ(names->size(), 2u);  // the folder, and what is to become the file
    for (const std::string& name : *names)
        EXPECT_TRUE(IsPrivate(directory / ("a/" + name))) << name;
    EXPECT_TRUE((*replacement)->Complete("new"));
    EXPECT_TRUE(IsPrivate(directory / "a/file"));
}

/// An access list as the system spells it.
std::wstring Spelt(const Platform::Windows::PrivateAccess& access) {
    wchar_t* text = nullptr;
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
        access.Attributes().lpSecurityDescriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text,
        nullptr));
    const std::unique_ptr<wchar_t, decltype(&LocalFree)> owned(text, &LocalFree);
    return text ? text : L"";
}

// What the system is asked for: not every one keeps all of it.
TEST_F(FilesTest, AccessIsForTheSystemAndItsAdministratorsHandedOnByFoldersAndTakenFromNone) {
    EXPECT_EQ(Spelt(*Platform::Windows::PrivateAccess::ToFile()), L"D:P(A;;FA;;;SY)(A;;FA;;;BA)");
    EXPECT_EQ(Spelt(*Platform::Windows::PrivateAccess::ToFolder()), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
}

TEST_F(FilesTest, ExistingFoldersKeepTheirAccess) {
    std::filesystem::create_directory(directory / "a");
    ASSERT_FALSE(IsPrivate(directory / "a"));
    EXPECT_TRUE(files.CreateDirectories(directory / "a/b", Durability::Unsynced));
    EXPECT_FALSE(IsPrivate(directory / "a"));
    EXPECT_TRUE(IsPrivate(directory / "a/b"));
}

// What is announced.

TEST_F(FilesTest, SizeThatNoFileCanHaveIsRefused) {
    for (const std::uint64_t size : {std::uint64_t{1} << 63, std::numeric_limits<std::uint64_t>::max()}) {
        EXPECT_EQ(files.BeginReplace(directory / "file", size, Durability::Unsynced).Error(),
                  ERROR_FILE_TOO_LARGE);
    }
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(FilesTest, ReservedSpaceIsNoPartOfTheFileThatAPowerCutCouldLeaveFullOfNuls) {
    if (!Can(FileAllocationInfo, FILE_ALLOCATION_INFO{}, directory / "scratch")) {
        return LeaveOut("this system cannot reserve space");
    }
    const auto replacement = files.BeginReplace(directory / "file", 12345, Durability::Synced);
    ASSERT_TRUE(replacement);
    ASSERT_EQ(Names().size(), 1u);
    EXPECT_EQ(files.State(directory / Names()[0])->size, 0u);
}

TEST_F(FilesTest, FullDiskShowsWhenTheReplacementBegins) {
    char disk[MAX_PATH] = {};
    if (GetEnvironmentVariableA("OMBRY_SMALL_DISK", disk, sizeof disk) == 0) {
        return LeaveOut("has a disk of half a megabyte, in OMBRY_SMALL_DISK, where SmallDiskTest runs it");
    }
    const std::string path = std::string(disk) + "/file";
    ASSERT_TRUE(Save(path, "old", Durability::Synced));
    EXPECT_EQ(files.BeginReplace(path, 1 << 20, Durability::Synced).Error(), ERROR_DISK_FULL);
    EXPECT_EQ(*files.Read(path), "old");
    EXPECT_THAT(*files.List(disk), ElementsAre("file"));
    EXPECT_TRUE(files.Remove(path, Durability::Synced));
}

TEST_F(FilesTest, FileOfMoreThanOneTransferIsWrittenAndReadWhole) {
    std::string content(3'000'001, '\0');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 7 % 251);
    ASSERT_TRUE(Save(directory / "file", content));
    const auto read = files.Read(directory / "file");
    ASSERT_TRUE(read);
    EXPECT_TRUE(*read == content);
}

TEST_F(FilesTest, ReplacementIsAnotherFileThanTheOneItReplaces) {
    ASSERT_TRUE(Save(directory / "file", "old"));
    const auto before = files.State(directory / "file");
    ASSERT_TRUE(before);
    ASSERT_TRUE(Save(directory / "file", "new"));
    // Both stood beside each other.
    EXPECT_NE(files.State(directory / "file")->file, before->file);
}

TEST_F(FilesTest, FileWhoseTimeOfWritingWasPutBackHasAnotherState) {
    const std::string path = directory.Write("file", "old");
    const auto before = files.State(path);
    ASSERT_TRUE(before);
    const Platform::Windows::Handle file(CreateFileW(WidePath(path)->c_str(), GENERIC_READ | GENERIC_WRITE,
                                                     ShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    FILETIME written{};
    ASSERT_TRUE(GetFileTime(file.Get(), nullptr, nullptr, &written));
    // The clock behind it moves in steps.
    for (int tries = 0; *files.State(path) == *before && tries < 1000; ++tries) {
        DWORD count = 0;
        SetFilePointer(file.Get(), 0, nullptr, FILE_BEGIN);
        ASSERT_TRUE(WriteFile(file.Get(), "new", 3, &count, nullptr));
        ASSERT_TRUE(SetFileTime(file.Get(), nullptr, nullptr, &written));
    }
    EXPECT_NE(*files.State(path), *before);
}

}  // namespace
}  // namespace Ombry::Tests
