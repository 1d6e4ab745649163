#include "Platform/ISecurityProvider.h"
#include "Platform/Windows/Api.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace Ombry::Tests {
namespace {

using namespace Platform;

class SystemSecurityProviderTest : public testing::Test {
protected:
    /// The functions of a library that stays loaded.
    SecurityFunctions* FunctionsOf(const char* library) {
        const auto module = provider.LoadModule(library);
        if (!module) return nullptr;
        const auto entryPoint = provider.FindEntryPoint(*module, "InitSecurityInterfaceA");
        if (!entryPoint) return nullptr;
        const auto functions = provider.CallEntryPoint(*entryPoint);
        return functions ? *functions : nullptr;
    }

    ISecurityProvider& provider = SecurityProvider();
};

TEST_F(SystemSecurityProviderTest, EachLibraryThatIsAskedForHasThePackageThatSpeaksTls) {
    for (const char* library : {"SCHANNEL.DLL", "SECUR32.DLL", "SECURITY.DLL"}) {
        SecurityFunctions* const functions = FunctionsOf(library);
        ASSERT_NE(functions, nullptr) << library;
        SecPkgInfoA* info = nullptr;
        ASSERT_EQ(functions->QuerySecurityPackageInfoA(UnispNameA, &info), SecEOk) << library;
        EXPECT_GE(info->cbMaxToken, 16384u) << library;
        EXPECT_STREQ(info->Name, UnispNameA) << library;
        EXPECT_EQ(functions->FreeContextBuffer(info), SecEOk) << library;
    }
}

TEST_F(SystemSecurityProviderTest, OneTableHasOneSetOfFunctions) {
    EXPECT_EQ(FunctionsOf("SCHANNEL.DLL"), FunctionsOf("SCHANNEL.DLL"));
}

TEST_F(SystemSecurityProviderTest, LibraryThatTheSystemDoesNotHaveFailsWithItsNumber) {
    const auto module = provider.LoadModule("OMBRY-NOWHERE.DLL");
    ASSERT_FALSE(module);
    EXPECT_EQ(module.Error(), 126);
}

TEST_F(SystemSecurityProviderTest, LibraryInTheCurrentFolderIsNotTaken) {
    const TemporaryDirectory directory;
    const std::filesystem::path former = std::filesystem::current_path();
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, MAX_PATH);
    std::filesystem::current_path(directory.Path());
    std::filesystem::copy_file(std::wstring(folder) + L"\\version.dll", "ombry-planted.dll");
    const HMODULE byTheSystem = LoadLibraryW(L"ombry-planted.dll");
    EXPECT_NE(byTheSystem, nullptr);
    if (byTheSystem) FreeLibrary(byTheSystem);
    EXPECT_FALSE(provider.LoadModule("ombry-planted.dll"));
    std::filesystem::current_path(former);
}

TEST_F(SystemSecurityProviderTest, FunctionThatALibraryDoesNotHaveFailsWithItsNumber) {
    const auto module = provider.LoadModule("SCHANNEL.DLL");
    ASSERT_TRUE(module);
    const auto entryPoint = provider.FindEntryPoint(*module, "InitSomethingElse");
    ASSERT_FALSE(entryPoint);
    EXPECT_EQ(entryPoint.Error(), 127);
    provider.ReleaseModule(*module);
}

TEST_F(SystemSecurityProviderTest, StatusOfAFailureIsHandedThrough) {
    SecurityFunctions* const functions = FunctionsOf("SCHANNEL.DLL");
    ASSERT_NE(functions, nullptr);
    SecPkgInfoA* info = nullptr;
    EXPECT_LT(functions->QuerySecurityPackageInfoA("no such package", &info), 0);
}

}  // namespace
}  // namespace Ombry::Tests
