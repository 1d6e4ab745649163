#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <new>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::SafeFileStorage;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class SafeFileStorageTest : public testing::Test {
protected:
    /// The process ends before the n-th operation from now on.
    void CrashBefore(std::size_t n) {
        files.ClearOperations();
        const auto count = std::make_shared<std::size_t>(0);
        files.Decide([n, count](const FileOperation&) -> std::optional<int> {
            if (++*count == n) throw Crash();
            return std::nullopt;
        });
    }
    void CrashNoMore() { files.Decide(nullptr); }

    template <class Act>
    bool Survives(const Act& act) {
        try {
            act();
        } catch (const Crash&) {
            return false;
        }
        return true;
    }

    MemoryFiles files;
    Platform::Testing::Replace<Platform::IFiles> replaced{files};
};

TEST_F(SafeFileStorageTest, SaveStagesThenDeletesThenRenames) {
    files.Put("dir/blob-p", "old");

    SafeFileStorage("dir/blob", true).Save("new");

    EXPECT_THAT(files.Texts(), ElementsAre("CreateDirectories dir Unsynced",
                                           "BeginReplace dir/blob-s Unsynced", "Complete dir/blob-s Unsynced",
                                           "Remove dir/blob-p Unsynced", "Rename dir/blob-s dir/blob-p"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/blob-p", "new")));
}

TEST_F(SafeFileStorageTest, FirstSaveMakesTheFoldersAndLeavesJustTheCommittedFile) {
    SafeFileStorage("a/b/blob", false).Save("text");

    EXPECT_THAT(files.Contents(), ElementsAre(Pair("a/b/blob-p", "text")));
}

TEST_F(SafeFileStorageTest, LoadReadsTheCommittedFileAlone) {
    files.Put("blob-p", std::string("te\0xt", 5));

    EXPECT_EQ(SafeFileStorage("blob", true).Load(), std::string("te\0xt", 5));
    EXPECT_THAT(files.Texts(), ElementsAre("Read blob-p"));
}

TEST_F(SafeFileStorageTest, AnEmptyCommittedFileIsAnEmptyTextAndNoReasonToRecover) {
    files.Put("blob-p", "");
    files.Put("blob-s", "staged");

    EXPECT_EQ(SafeFileStorage("blob", true).Load(), "");
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("blob-p", ""), Pair("blob-s", "staged")));
}

TEST_F(SafeFileStorageTest, AStagedFileBesideAGoodOneIsIgnoredAndStays) {
    files.Put("blob-p", "committed");
    files.Put("blob-s", "staged");

    EXPECT_EQ(SafeFileStorage("blob", true).Load(), "committed");
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("blob-p", "committed"), Pair("blob-s", "staged")));
}

TEST_F(SafeFileStorageTest, AStagedFileLeftBehindIsOverwrittenByTheNextSave) {
    files.Put("blob-p", "committed");
    files.Put("blob-s", "left behind, and longer");

    SafeFileStorage("blob", true).Save("new");

    EXPECT_THAT(files.Contents(), ElementsAre(Pair("blob-p", "new")));
}

TEST_F(SafeFileStorageTest, WithJustAStagedFileLoadFinishesTheSave) {
    files.Put("blob-s", "staged");

    EXPECT_EQ(SafeFileStorage("blob", true).Load(), "staged");

    EXPECT_THAT(files.Texts(),
                ElementsAre("Read blob-p", "Read blob-s", "Remove blob-p Unsynced", "Rename blob-s blob-p"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("blob-p", "staged")));
}

TEST_F(SafeFileStorageTest, WithNeitherFileLoadGivesEmptyTextOrTheFailureOfTheStagedFile) {
    EXPECT_EQ(SafeFileStorage("dir/blob", false).Load(), "");
    try {
        SafeFileStorage("dir/blob", true).Load();
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(
            failure.what(),
            "Ombry::ClientCommunications::FileStorage::Load: Failed to open file 'dir/blob-s' for read.");
    }
    EXPECT_THAT(files.Contents(), IsEmpty());
}

TEST_F(SafeFileStorageTest, ACommittedFileThatCannotBeReadIsReplacedByTheStagedOne) {
    files.Put("blob-p", "unreadable");
    files.Put("blob-s", "staged");
    files.FailEvery("Read", EIO, "blob-p");

    EXPECT_EQ(SafeFileStorage("blob", true).Load(), "staged");
    EXPECT_EQ(files.Content("blob-p"), "staged");
    EXPECT_FALSE(files.Exists("blob-s"));
}

TEST_F(SafeFileStorageTest, ACommittedFileThatCannotBeReadStaysIfThereIsNoStagedOne) {
    files.Put("blob-p", "unreadable");
    files.FailEvery("Read", EIO, "blob-p");

    EXPECT_EQ(SafeFileStorage("blob", false).Load(), "");
    EXPECT_EQ(files.Content("blob-p"), "unreadable");
}

TEST_F(SafeFileStorageTest, EveryExceptionOfTheStandardLibraryLeadsToRecoveryOrIsItsFailure) {
    files.Put("blob-p", "committed");
    files.Put("blob-s", "staged");
    files.Decide([](const FileOperation& operation) -> std::optional<int> {
        if (operation.path == "blob-p" && operation.name == "Read") throw std::bad_alloc();
        return std::nullopt;
    });
    EXPECT_EQ(SafeFileStorage("blob", true).Load(), "staged");

    files.Decide([](const FileOperation& operation) -> std::optional<int> {
        if (operation.name == "Read") throw std::bad_alloc();
        return std::nullopt;
    });
    EXPECT_EQ(SafeFileStorage("blob", false).Load(), "");
    EXPECT_THROW(SafeFileStorage("blob", true).Load(), std::bad_alloc);
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("blob-p", "staged")));
}

TEST_F(SafeFileStorageTest, ResultsOfRemovingAndRenamingAreIgnored) {
    files.Put("blob-p", "old");
    files.FailEvery("Remove", EACCES);
    EXPECT_NO_THROW(SafeFileStorage("blob", true).Save("first"));
    EXPECT_EQ(files.Content("blob-p"), "first");  // the rename replaces what could not be removed

    files.FailEvery("Rename", EACCES);
    EXPECT_NO_THROW(SafeFileStorage("blob", true).Save("second"));
    EXPECT_EQ(files.Content("blob-s"), "second");
    EXPECT_FALSE(files.Exists("blob-p"));
    EXPECT_EQ(SafeFileStorage("blob", true).Load(), "second");
    EXPECT_EQ(files.Content("blob-s"), "second");
}

TEST_F(SafeFileStorageTest, AStagedFileThatDoesNotOpenFailsTheSaveAndKeepsTheOldOne) {
    files.Put("dir/blob-p", "old");
    files.FailEvery("BeginReplace", ENOSPC);

    try {
        SafeFileStorage("dir/blob", false).Save("new");
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(
            failure.what(),
            "Ombry::ClientCommunications::FileStorage::Save: Failed to open file 'dir/blob-s' for write.");
    }
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/blob-p", "old")));
}

TEST_F(SafeFileStorageTest, WhicheverOperationOfASaveFailsTheNextLoadIsWhole) {
    // What each failure leaves to be loaded. A staged text that was not written is lost as if never saved,
    // with the committed one already gone: the third step trusts the first.
    const std::vector<std::string> expected = {"old", "old", "", "new", "new", "new"};
    for (std::size_t n = 1; n <= 6; ++n) {
        MemoryFiles disk;
        const Platform::Testing::Replace<Platform::IFiles> scope(disk);
        disk.Put("dir/blob-p", "old");
        disk.FailNth(n, EIO);
        try {
            SafeFileStorage("dir/blob", true).Save("new");
        } catch (const std::exception&) {
            EXPECT_LE(n, 2u);
        }
        disk.FailNth(0, 0);
        EXPECT_EQ(SafeFileStorage("dir/blob", false).Load(), expected[n - 1]) << n;
    }
}

TEST_F(SafeFileStorageTest, ACrashBeforeAnyOperationOfASaveLeavesTheOldOrTheNewText) {
    for (std::size_t n = 1; n <= 6; ++n) {
        files.Put("dir/blob-p", "old");
        CrashBefore(n);
        EXPECT_EQ(Survives([] { SafeFileStorage("dir/blob", true).Save("new"); }), n == 6);
        CrashNoMore();
        EXPECT_EQ(SafeFileStorage("dir/blob", true).Load(), n <= 4 ? "old" : "new") << n;
        SafeFileStorage("dir/blob", true).Save("next");
        EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/blob-p", "next"))) << n;
    }
}

TEST_F(SafeFileStorageTest, ACrashInAFirstSaveLeavesNothingOrTheNewText) {
    for (std::size_t n = 1; n <= 6; ++n) {
        const std::string path = "dir" + std::to_string(n) + "/blob";
        CrashBefore(n);
        EXPECT_EQ(Survives([&] { SafeFileStorage(path, true).Save("new"); }), n == 6);
        CrashNoMore();
        EXPECT_EQ(SafeFileStorage(path, false).Load(), n <= 3 ? "" : "new") << n;
    }
}

TEST_F(SafeFileStorageTest, ACrashInRecoveryLosesNothing) {
    for (std::size_t n = 1; n <= 5; ++n) {
        const std::string path = "blob" + std::to_string(n);
        files.Put(path + "-s", "staged");
        CrashBefore(n);
        EXPECT_EQ(Survives([&] { SafeFileStorage(path, true).Load(); }), n == 5);
        CrashNoMore();
        EXPECT_EQ(SafeFileStorage(path, true).Load(), "staged") << n;
        EXPECT_TRUE(files.Exists(path + "-p"));
        EXPECT_FALSE(files.Exists(path + "-s"));
    }
}

TEST_F(SafeFileStorageTest, AReaderBesideAWriterOfAnotherProcessMayLoseTheEntryButSeesItWhole) {
    // The writer has removed the old copy. It renames the new one when the reader has read that as a staged
    // one, and is about to finish the save in its turn.
    files.Put("blob-s", "new");
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name == "Remove") static_cast<void>(files.Rename("blob-s", "blob-p"));
        return std::nullopt;
    });

    EXPECT_EQ(SafeFileStorage("blob", false).Load(), "new");

    EXPECT_THAT(files.Contents(), IsEmpty());
    EXPECT_EQ(SafeFileStorage("blob", false).Load(), "");
}

TEST_F(SafeFileStorageTest, LoadCommittedChangesNothing) {
    files.Put("blob-s", "staged");
    EXPECT_EQ(SafeFileStorage("blob", false).LoadCommitted(), std::nullopt);
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("blob-s", "staged")));

    files.Put("blob-p", "");
    EXPECT_EQ(SafeFileStorage("blob", false).LoadCommitted(), "");
}

TEST(SafeFileStorageOnDiskTest, KeepsOneFileAndRecovers) {
    const TemporaryDirectory directory;
    SafeFileStorage storage(directory / "cache//blob", false);

    EXPECT_EQ(storage.Load(), "");
    storage.Save("text");
    EXPECT_EQ(directory.Read("cache/blob-p"), "text");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory / "cache"), {}), 1);

    std::filesystem::rename(directory / "cache/blob-p", directory / "cache/blob-s");
    EXPECT_EQ(storage.Load(), "text");
    EXPECT_EQ(directory.Read("cache/blob-p"), "text");
    EXPECT_FALSE(std::filesystem::exists(directory / "cache/blob-s"));
}

TEST(SafeFileStorageOnDiskTest, AFolderInThePlaceOfTheCommittedFileIsNeverRemoved) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "blob-p");

    EXPECT_EQ(SafeFileStorage(directory / "blob", false).Load(), "");
    EXPECT_NO_THROW(SafeFileStorage(directory / "blob", false).Save("text"));
    EXPECT_TRUE(std::filesystem::is_directory(directory / "blob-p"));
    EXPECT_EQ(SafeFileStorage(directory / "blob", false).Load(), "text");
}

}  // namespace
}  // namespace Ombry::Tests
