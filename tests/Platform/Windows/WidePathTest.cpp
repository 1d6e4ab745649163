#include "Platform/Windows/Api.h"
#include "Platform/Windows/WidePath.h"

#include <gtest/gtest.h>

#include <map>

namespace Ombry::Tests {
namespace {

using Platform::Windows::EndOfRoot;
using Platform::Windows::ParentOf;
using Platform::Windows::WidePath;

TEST(WidePathTest, AbsolutePathsAreTakenWithEitherSeparator) {
    const std::map<std::string, std::wstring> cases{
        {"C:\\a\\b", L"\\\\?\\C:\\a\\b"},      {"C:/a/b", L"\\\\?\\C:\\a\\b"},
        {"C:\\a/b/", L"\\\\?\\C:\\a\\b"},      {"C://a\\\\b//", L"\\\\?\\C:\\a\\b"},
        {"C:/a/./b/../c", L"\\\\?\\C:\\a\\c"}, {"C:/", L"\\\\?\\C:\\"},
        {"c:/x.y.z", L"\\\\?\\c:\\x.y.z"},     {"//server/share/a", L"\\\\?\\UNC\\server\\share\\a"},
        {"C:/\xC3\xA4", L"\\\\?\\C:\\\u00E4"}, {"C:/.hidden", L"\\\\?\\C:\\.hidden"},
    };
    for (const auto& [path, expected] : cases) {
        const auto wide = WidePath(path);
        ASSERT_TRUE(wide) << path;
        EXPECT_TRUE(*wide == expected) << path;
    }
}

TEST(WidePathTest, RelativePathsBeginAtTheCurrentFolder) {
    wchar_t current[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, current);
    const std::wstring here = std::wstring(L"\\\\?\\") + current;
    EXPECT_TRUE(*WidePath("file") == here + L"\\file");
    EXPECT_TRUE(*WidePath("./a/file") == here + L"\\a\\file");
    EXPECT_TRUE(*WidePath(".") == here);
}

TEST(WidePathTest, NamesThatStandForSomethingElseAreRefused) {
    for (const std::string name : {"CON",
                                   "con",
                                   "Prn",
                                   "AUX",
                                   "NUL",
                                   "nul.txt",
                                   "NUL .txt",
                                   "CONIN$",
                                   "conout$",
                                   "COM1",
                                   "com9",
                                   "LPT1",
                                   "lpt9.x",
                                   "COM\xC2\xB9",
                                   "a.",
                                   "a ",
                                   "...",
                                   ". .",
                                   "a:b",
                                   "a<b",
                                   "a>b",
                                   "a\"b",
                                   "a|b",
                                   "a?b",
                                   "a*b",
                                   "a\x01",
                                   "a\x1F"
                                   "b"}) {
        EXPECT_EQ(WidePath("C:/folder/" + name).Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(WidePath("C:/" + name + "/below").Error(), ERROR_INVALID_NAME) << name;
        EXPECT_EQ(WidePath(name).Error(), ERROR_INVALID_NAME) << name;
    }
}

TEST(WidePathTest, NamesThatOnlyResembleThoseAreTaken) {
    for (const std::string name : {"CONS", "xCON", "CO", "COM", "COM0", "COM10", "LPTx", "NULL", "a.CON",
                                   "a.b", "..a", "-", "a b", "CON-1"}) {
        EXPECT_TRUE(WidePath("C:/folder/" + name)) << name;
    }
}

TEST(WidePathTest, DevicesAndDriveRelativePathsAreRefused) {
    for (const std::string path :
         {"//./pipe/x", "\\\\.\\C:", "//?/C:/a", "\\\\?\\C:\\a", "C:a", "C:", "1:/a"}) {
        EXPECT_FALSE(WidePath(path)) << path;
    }
}

TEST(WidePathTest, EmptyPathAndWhatIsNoUtf8AreRefused) {
    EXPECT_EQ(WidePath("").Error(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(WidePath("C:/\xFF").Error(), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(WidePath(std::string("C:/a\0b", 6)).Error(), ERROR_INVALID_NAME);
}

TEST(WidePathTest, ParentEndsAtTheRoot) {
    EXPECT_TRUE(ParentOf(*WidePath("C:/a/b")) == L"\\\\?\\C:\\a");
    EXPECT_TRUE(ParentOf(*WidePath("C:/a")) == L"\\\\?\\C:\\");
    EXPECT_TRUE(ParentOf(*WidePath("C:/")) == L"\\\\?\\C:\\");
    EXPECT_TRUE(ParentOf(*WidePath("//server/share/a")) == L"\\\\?\\UNC\\server\\share");
    EXPECT_TRUE(ParentOf(*WidePath("//server/share")) == L"\\\\?\\UNC\\server\\share");
}

TEST(WidePathTest, RootIsTheDriveOrTheShare) {
    EXPECT_EQ(EndOfRoot(L"\\\\?\\C:\\a"), 7u);
    EXPECT_EQ(EndOfRoot(L"\\\\?\\UNC\\server\\share\\a"), 20u);
    EXPECT_EQ(EndOfRoot(L"\\\\?\\UNC\\server\\share"), 20u);
}

}  // namespace
}  // namespace Ombry::Tests
