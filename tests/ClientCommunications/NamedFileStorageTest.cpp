#include "ClientCommunications/Impl/NamedFileStorage.h"
#include "tests/Fakes/MemoryFiles.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace Ombry::Tests {
namespace {

using ClientCommunications::IPostSaveHook;
using ClientCommunications::NamedFileStorage;
using testing::ElementsAre;
using testing::Pair;

class CountingHook : public IPostSaveHook {
public:
    void OnSaved(const std::string& path) override { saved.push_back(path); }
    std::vector<std::string> saved;
};

class NamedFileStorageTest : public testing::Test {
protected:
    MemoryFiles files;
    Platform::Testing::Replace<Platform::IFiles> replaced{files};
};

TEST_F(NamedFileStorageTest, ThePathIsPrefixNameAndSuffixWithNothingBetween) {
    NamedFileStorage("dir/pre", "post.x", true).Get("name")->Save("1");
    NamedFileStorage("dir/Components/", "/ombrycomponent.config", true).Get("a b")->Save("2");
    NamedFileStorage("dir/blob", "", true).Get("-p")->Save("3");

    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/Components/a b/ombrycomponent.config", "2"),
                                              Pair("dir/blob-p", "3"), Pair("dir/prenamepost.x", "1")));
}

TEST_F(NamedFileStorageTest, GetPassesItsOwnRuleForMissingFilesOn) {
    EXPECT_EQ(NamedFileStorage("dir/", ".x", false).Get("name")->Load(), "");
    try {
        NamedFileStorage("dir/", ".x", true).Get("name")->Load();
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(
            failure.what(),
            "Ombry::ClientCommunications::FileStorage::Load: Failed to open file 'dir/name.x' for read.");
    }
}

TEST_F(NamedFileStorageTest, GetPassesHookAndDurabilityOn) {
    const auto hook = std::make_shared<CountingHook>();
    NamedFileStorage("dir/", "", true, hook).Get("a")->Save("x");
    EXPECT_THAT(hook->saved, ElementsAre("dir/a"));
    EXPECT_EQ(files.Texts()[1], "BeginReplace dir/a Synced");

    files.ClearOperations();
    NamedFileStorage("dir/", "", true, nullptr, Platform::Durability::Unsynced).Get("a")->Save("x");
    EXPECT_EQ(files.Texts()[1], "BeginReplace dir/a Unsynced");
}

TEST_F(NamedFileStorageTest, GetTouchesNoFile) {
    static_cast<void>(NamedFileStorage("dir/", "", true).Get("a"));
    EXPECT_TRUE(files.Texts().empty());
}

TEST_F(NamedFileStorageTest, DeleteRemovesTheFileAndIgnoresTheResult) {
    files.Put("dir/a.x", "1");
    files.Put("dir/b.x", "2");
    files.PutFolder("dir/folder.x");
    NamedFileStorage storage("dir/", ".x", true);

    storage.Delete("a");
    EXPECT_NO_THROW(storage.Delete("a"));
    EXPECT_NO_THROW(storage.Delete("folder"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/b.x", "2")));
    EXPECT_TRUE(files.Exists("dir/folder.x"));
    EXPECT_THAT(files.Texts(),
                ElementsAre("Remove dir/a.x Synced", "Remove dir/a.x Synced", "Remove dir/folder.x Synced"));
}

TEST_F(NamedFileStorageTest, DeletedCachesAreNotSynced) {
    files.Put("a", "1");

    NamedFileStorage("", "", true, nullptr, Platform::Durability::Unsynced).Delete("a");

    EXPECT_THAT(files.Texts(), ElementsAre("Remove a Unsynced"));
}

TEST_F(NamedFileStorageTest, RenameMovesTheFileAndIgnoresTheResult) {
    files.Put("dir/a.x", "1");
    NamedFileStorage storage("dir/", ".x", true);

    storage.Rename("a", "b");
    EXPECT_NO_THROW(storage.Rename("a", "b"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/b.x", "1")));
    EXPECT_THAT(files.Texts(), ElementsAre("Rename dir/a.x dir/b.x", "Rename dir/a.x dir/b.x"));
}

}  // namespace
}  // namespace Ombry::Tests
