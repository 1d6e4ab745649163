#include "Platform/IFiles.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using Platform::Durability;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A disk to hold the contract against, with the special nodes that only the disk itself can make.
class Disk {
public:
    virtual ~Disk() = default;
    virtual Platform::IFiles& Files() = 0;
    virtual std::string Root() = 0;
    /// False where this disk has no links that a test can make.
    virtual bool PutLink(const std::string& path) = 0;
};

class RealDisk : public Disk {
public:
    Platform::IFiles& Files() override { return Platform::Production<Platform::IFiles>(); }
    std::string Root() override { return directory.Path(); }
    bool PutLink(const std::string& path) override {
        std::error_code error;
        std::filesystem::create_symlink(directory.Write("behind-the-link", "secret"), path, error);
        return !error;
    }

private:
    TemporaryDirectory directory;
};

class MemoryDisk : public Disk {
public:
    MemoryDisk() { files.PutFolder("/root"); }
    Platform::IFiles& Files() override { return files; }
    std::string Root() override { return "/root"; }
    bool PutLink(const std::string& path) override {
        files.Put("/root/behind-the-link", "secret");
        files.PutLink(path);
        return true;
    }

private:
    MemoryFiles files;
};

template <class DiskType>
class FilesContractTest : public testing::Test {
protected:
    std::string At(const std::string& name) { return disk.Root() + "/" + name; }

    void Save(const std::string& path, const std::string& data) {
        auto replacement = files.BeginReplace(path, data.size(), Durability::Unsynced);
        ASSERT_TRUE(replacement) << replacement.Error();
        const auto result = (*replacement)->Complete(data);
        ASSERT_TRUE(result) << result.Error();
    }

    std::vector<std::string> Names(const std::string& directory) {
        const auto names = files.List(directory);
        EXPECT_TRUE(names) << names.Error();
        return names ? *names : std::vector<std::string>();
    }

    DiskType disk;
    Platform::IFiles& files = disk.Files();
};

using Disks = testing::Types<RealDisk, MemoryDisk>;
TYPED_TEST_SUITE(FilesContractTest, Disks);

TYPED_TEST(FilesContractTest, ReadGivesEveryByteOfWhatWasSaved) {
    const std::string content("a\0b\r\n\xff", 6);
    this->Save(this->At("file"), content);
    const auto read = this->files.Read(this->At("file"));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, content);
}

TYPED_TEST(FilesContractTest, EmptyFileIsReadAsEmptyText) {
    this->Save(this->At("file"), "");
    const auto read = this->files.Read(this->At("file"));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, "");
}

TYPED_TEST(FilesContractTest, ReadOfMissingFileFails) {
    const auto read = this->files.Read(this->At("missing"));
    EXPECT_FALSE(read);
}

TYPED_TEST(FilesContractTest, ReadOfFolderFails) {
    ASSERT_TRUE(this->files.CreateDirectories(this->At("folder"), Durability::Unsynced));
    const auto read = this->files.Read(this->At("folder"));
    EXPECT_FALSE(read);
}

TYPED_TEST(FilesContractTest, ReadThroughSymbolicLinkFails) {
    if (!this->disk.PutLink(this->At("link"))) return LeaveOut("no links can be made on this disk");
    const auto read = this->files.Read(this->At("link"));
    EXPECT_FALSE(read);
}

TYPED_TEST(FilesContractTest, StateIsTheSameUntilTheFileIsAnother) {
    this->Save(this->At("file"), "data");
    const auto first = this->files.State(this->At("file"));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size, 4u);
    ASSERT_TRUE(this->files.Read(this->At("file")));
    this->Save(this->At("other"), "x");
    EXPECT_EQ(*this->files.State(this->At("file")), *first);

    this->Save(this->At("file"), "longer");
    EXPECT_NE(*this->files.State(this->At("file")), *first);
}

TYPED_TEST(FilesContractTest, OnlyRegularFileHasState) {
    ASSERT_TRUE(this->files.CreateDirectories(this->At("folder"), Durability::Unsynced));
    if (!this->disk.PutLink(this->At("link"))) return LeaveOut("no links can be made on this disk");
    EXPECT_FALSE(this->files.State(this->At("missing")));
    EXPECT_FALSE(this->files.State(this->At("folder")));
    EXPECT_FALSE(this->files.State(this->At("link")));
}

TYPED_TEST(FilesContractTest, OldFileStandsUntilReplacementIsComplete) {
    this->Save(this->At("file"), "old");
    auto replacement = this->files.BeginReplace(this->At("file"), 3, Durability::Synced);
    ASSERT_TRUE(replacement);
    EXPECT_EQ(*this->files.Read(this->At("file")), "old");
    ASSERT_TRUE((*replacement)->Complete("new"));
    EXPECT_EQ(*this->files.Read(this->At("file")), "new");
}

TYPED_TEST(FilesContractTest, AbandonedReplacementLeavesNoTrace) {
    this->Save(this->At("file"), "old");
    { ASSERT_TRUE(this->files.BeginReplace(this->At("file"), 3, Durability::Synced)); }
    EXPECT_THAT(this->Names(this->disk.Root()), ElementsAre("file"));
    EXPECT_EQ(*this->files.Read(this->At("file")), "old");
}

TYPED_TEST(FilesContractTest, AbandonedReplacementOfMissingFileMakesNone) {
    { ASSERT_TRUE(this->files.BeginReplace(this->At("file"), 3, Durability::Unsynced)); }
    EXPECT_THAT(this->Names(this->disk.Root()), IsEmpty());
}

TYPED_TEST(FilesContractTest, DataOfAnotherSizeThanAnnouncedIsRefused) {
    for (const std::string data : {"", "12", "1234"}) {
        {
            auto replacement = this->files.BeginReplace(this->At("file"), 3, Durability::Unsynced);
            ASSERT_TRUE(replacement);
            EXPECT_FALSE((*replacement)->Complete(data)) << data;
        }
        EXPECT_THAT(this->Names(this->disk.Root()), IsEmpty()) << data;
    }
}

TYPED_TEST(FilesContractTest, ReplacementOfFolderIsRefusedAtTheStart) {
    ASSERT_TRUE(this->files.CreateDirectories(this->At("folder"), Durability::Unsynced));
    const auto replacement = this->files.BeginReplace(this->At("folder"), 1, Durability::Unsynced);
    EXPECT_FALSE(replacement);
}

TYPED_TEST(FilesContractTest, ReplacementOfSymbolicLinkIsRefusedAtTheStart) {
    if (!this->disk.PutLink(this->At("link"))) return LeaveOut("no links can be made on this disk");
    const auto replacement = this->files.BeginReplace(this->At("link"), 1, Durability::Unsynced);
    EXPECT_FALSE(replacement);
    EXPECT_EQ(*this->files.Read(this->At("behind-the-link")), "secret");
}

TYPED_TEST(FilesContractTest, ReplacementInMissingFolderFailsAtTheStart) {
    const auto replacement = this->files.BeginReplace(this->At("missing/file"), 1, Durability::Synced);
    EXPECT_FALSE(replacement);
}

TYPED_TEST(FilesContractTest, ReplacementBelowFileFailsAtTheStart) {
    this->Save(this->At("file"), "x");
    const auto replacement = this->files.BeginReplace(this->At("file/below"), 1, Durability::Unsynced);
    EXPECT_FALSE(replacement);
}

TYPED_TEST(FilesContractTest, RemoveTakesTheFileAway) {
    this->Save(this->At("file"), "x");
    EXPECT_TRUE(this->files.Remove(this->At("file"), Durability::Unsynced));
    EXPECT_FALSE(this->files.Read(this->At("file")));
}

TYPED_TEST(FilesContractTest, RemoveOfMissingFileFails) {
    EXPECT_FALSE(this->files.Remove(this->At("missing"), Durability::Unsynced));
}

TYPED_TEST(FilesContractTest, RemoveNeverRemovesFolderEvenIfEmpty) {
    ASSERT_TRUE(this->files.CreateDirectories(this->At("folder"), Durability::Unsynced));
    EXPECT_FALSE(this->files.Remove(this->At("folder"), Durability::Unsynced));
    EXPECT_THAT(this->Names(this->disk.Root()), ElementsAre("folder"));
}

TYPED_TEST(FilesContractTest, RenameReplacesTheTarget) {
    this->Save(this->At("from"), "new");
    this->Save(this->At("to"), "old");
    EXPECT_TRUE(this->files.Rename(this->At("from"), this->At("to")));
    EXPECT_THAT(this->Names(this->disk.Root()), ElementsAre("to"));
    EXPECT_EQ(*this->files.Read(this->At("to")), "new");
}

TYPED_TEST(FilesContractTest, RenameOfMissingFileFailsAndKeepsTheTarget) {
    this->Save(this->At("to"), "old");
    EXPECT_FALSE(this->files.Rename(this->At("missing"), this->At("to")));
    EXPECT_EQ(*this->files.Read(this->At("to")), "old");
}

TYPED_TEST(FilesContractTest, RenameOverFolderFails) {
    this->Save(this->At("from"), "x");
    ASSERT_TRUE(this->files.CreateDirectories(this->At("folder"), Durability::Unsynced));
    EXPECT_FALSE(this->files.Rename(this->At("from"), this->At("folder")));
    EXPECT_EQ(*this->files.Read(this->At("from")), "x");
}

TYPED_TEST(FilesContractTest, ListGivesFilesAndFoldersOfOneLevel) {
    ASSERT_TRUE(this->files.CreateDirectories(this->At("folder/below"), Durability::Unsynced));
    this->Save(this->At("a"), "");
    this->Save(this->At("folder/c"), "");
    EXPECT_THAT(this->Names(this->disk.Root()), UnorderedElementsAre("a", "folder"));
    EXPECT_THAT(this->Names(this->At("folder")), UnorderedElementsAre("below", "c"));
    EXPECT_THAT(this->Names(this->At("folder/below")), IsEmpty());
}

TYPED_TEST(FilesContractTest, ListOfMissingFolderFails) {
    EXPECT_FALSE(this->files.List(this->At("missing")));
}

TYPED_TEST(FilesContractTest, ListOfFileFails) {
    this->Save(this->At("file"), "");
    EXPECT_FALSE(this->files.List(this->At("file")));
}

TYPED_TEST(FilesContractTest, CreateDirectoriesMakesMissingParentsAndAcceptsExistingOnes) {
    EXPECT_TRUE(this->files.CreateDirectories(this->At("a/b"), Durability::Unsynced));
    EXPECT_TRUE(this->files.CreateDirectories(this->At("a/b/c/d"), Durability::Unsynced));
    EXPECT_TRUE(this->files.CreateDirectories(this->At("a/b/c/d"), Durability::Unsynced));
    EXPECT_THAT(this->Names(this->At("a/b/c")), ElementsAre("d"));
}

TYPED_TEST(FilesContractTest, DoubleAndTrailingSeparatorsPlayNoPart) {
    EXPECT_TRUE(this->files.CreateDirectories(this->At("cache//deep///"), Durability::Unsynced));
    this->Save(this->At("cache//deep//file"), "x");
    EXPECT_EQ(*this->files.Read(this->At("cache/deep/file")), "x");
}

TYPED_TEST(FilesContractTest, CreateDirectoriesFailsWhereFileStands) {
    this->Save(this->At("file"), "x");
    EXPECT_FALSE(this->files.CreateDirectories(this->At("file"), Durability::Unsynced));
    EXPECT_FALSE(this->files.CreateDirectories(this->At("file/below"), Durability::Unsynced));
    EXPECT_EQ(*this->files.Read(this->At("file")), "x");
}

TYPED_TEST(FilesContractTest, CreateDirectoriesOfEmptyPathFails) {
    EXPECT_FALSE(this->files.CreateDirectories("", Durability::Unsynced));
}

}  // namespace
}  // namespace Ombry::Tests
