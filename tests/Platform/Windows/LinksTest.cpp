// What `IFiles` does where a link stands. Not every system of this kind can make one.

#include "Platform/IFiles.h"
#include "Platform/Windows/OpenFile.h"
#include "Platform/Windows/WidePath.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using Platform::Durability;
using Platform::Windows::WidePath;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class LinksTest : public testing::Test {
protected:
    void SetUp() override {
        directory.Write("victim", "precious");
        if (!Link("link", "victim", 0)) LeaveOut("this system makes no links");
    }

    bool Link(const std::string& name, const std::string& target, DWORD flags) {
        constexpr DWORD unprivileged = 2;  // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
        const std::wstring path = *WidePath(directory / name);
        if (!CreateSymbolicLinkW(path.c_str(), WidePath(directory / target)->c_str(), flags | unprivileged)) {
            return false;
        }
        // Wine says that it did, and did not.
        return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    }

    TemporaryDirectory directory;
    Platform::IFiles& files = Platform::Production<Platform::IFiles>();
};

TEST_F(LinksTest, FileIsNeverReadOrReplacedThroughALink) {
    EXPECT_EQ(files.Read(directory / "link").Error(), ERROR_CANT_ACCESS_FILE);
    EXPECT_EQ(files.State(directory / "link").Error(), ERROR_CANT_ACCESS_FILE);
    EXPECT_EQ(files.BeginReplace(directory / "link", 1, Durability::Unsynced).Error(),
              ERROR_CANT_ACCESS_FILE);
    EXPECT_EQ(directory.Read("victim"), "precious");
}

TEST_F(LinksTest, LinkPutInPlaceMeanwhileIsReplacedAndNotFollowed) {
    auto replacement = files.BeginReplace(directory / "file", 1, Durability::Unsynced);
    ASSERT_TRUE(replacement);
    ASSERT_TRUE(Link("file", "victim", 0));
    EXPECT_TRUE((*replacement)->Complete("x"));
    EXPECT_EQ(*files.Read(directory / "file"), "x");
    EXPECT_EQ(directory.Read("victim"), "precious");
}

TEST_F(LinksTest, RemoveTakesTheLinkAndNotWhatItLeadsTo) {
    EXPECT_TRUE(files.Remove(directory / "link", Durability::Unsynced));
    EXPECT_THAT(*files.List(directory.Path()), ElementsAre("victim"));
}

TEST_F(LinksTest, LinkToAFolderCountsAsFolderAndOneThatLeadsNowhereDoesNot) {
    ASSERT_TRUE(files.CreateDirectories(directory / "real", Durability::Unsynced));
    ASSERT_TRUE(Link("folder", "real", SYMBOLIC_LINK_FLAG_DIRECTORY));
    ASSERT_TRUE(Link("dangling", "nowhere", SYMBOLIC_LINK_FLAG_DIRECTORY));
    EXPECT_TRUE(files.CreateDirectories(directory / "folder", Durability::Unsynced));
    EXPECT_TRUE(files.CreateDirectories(directory / "folder/below", Durability::Unsynced));
    EXPECT_THAT(*files.List(directory / "real"), ElementsAre("below"));
    EXPECT_EQ(files.CreateDirectories(directory / "dangling", Durability::Unsynced).Error(), ERROR_DIRECTORY);
    EXPECT_FALSE(files.Remove(directory / "folder", Durability::Unsynced));
    EXPECT_THAT(*files.List(directory.Path()),
                UnorderedElementsAre("dangling", "folder", "link", "real", "victim"));
}

}  // namespace
}  // namespace Ombry::Tests
