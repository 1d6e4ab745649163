#include "Platform/IKnownFolders.h"
#include "Platform/Windows/Api.h"
#include "Platform/Windows/Utf8.h"

#include <gtest/gtest.h>

#include <shlobj.h>

namespace Ombry::Tests {
namespace {

std::wstring FolderOf(const GUID& id) {
    PWSTR path = nullptr;
    EXPECT_EQ(SHGetKnownFolderPath(id, 0, nullptr, &path), S_OK);
    const std::wstring folder = path;
    CoTaskMemFree(path);
    return folder;
}

TEST(KnownFoldersTest, FolderOfTheMachineIsBelowTheCommonProgramDataBehindABackslash) {
    const auto folder = Platform::Production<Platform::IKnownFolders>().ProgramDataQuennet();
    ASSERT_TRUE(folder);
    EXPECT_TRUE(*folder == FolderOf(FOLDERID_ProgramData) + L"\\Quennet");
}

TEST(KnownFoldersTest, FolderOfTheUserIsBelowWhatStaysOnTheMachine) {
    const auto folder = Platform::Production<Platform::IKnownFolders>().CurrentUserQuennet();
    ASSERT_TRUE(folder);
    EXPECT_EQ(*folder, Platform::Windows::Utf8(FolderOf(FOLDERID_LocalAppData) + L"\\Quennet"));
}

TEST(KnownFoldersTest, NoEnvironmentVariableMovesThem) {
    Platform::IKnownFolders& folders = Platform::Production<Platform::IKnownFolders>();
    const std::wstring before = *folders.ProgramDataQuennet();
    wchar_t old[MAX_PATH] = {};
    GetEnvironmentVariableW(L"ProgramData", old, MAX_PATH);
    SetEnvironmentVariableW(L"ProgramData", L"C:\\elsewhere");
    EXPECT_TRUE(*folders.ProgramDataQuennet() == before);
    SetEnvironmentVariableW(L"ProgramData", old);
}

}  // namespace
}  // namespace Ombry::Tests
