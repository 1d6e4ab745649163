#include "ClientCommunications/Impl/FileStorage.h"
#include "tests/ClientCommunications/FileStorageTexts.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::FileStorage;
using ClientCommunications::IPostSaveHook;
using Platform::Durability;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class RecordingHook : public IPostSaveHook {
public:
    explicit RecordingHook(const MemoryFiles& files) : files(files) {}
    void OnSaved(const std::string& path) override { saved.emplace_back(path, files.Content(path)); }

    std::vector<std::pair<std::string, std::optional<std::string>>> saved;

private:
    const MemoryFiles& files;
};

class FileStorageTest : public testing::Test {
protected:
    MemoryFiles files;
    Platform::Testing::Replace<Platform::IFiles> replaced{files};
};

TEST_F(FileStorageTest, LoadGivesEveryByteOfTheFile) {
    const std::string content("a\0b\r\n\xff\n", 8);
    files.Put("dir/file", content);

    EXPECT_EQ(FileStorage("dir/file", true).Load(), content);
    EXPECT_THAT(files.Texts(), ElementsAre("Read dir/file"));
}

TEST_F(FileStorageTest, EmptyFileLoadsAsEmptyTextEvenWhereAMissingOneIsAFailure) {
    files.Put("file", "");

    EXPECT_EQ(FileStorage("file", true).Load(), "");
}

TEST_F(FileStorageTest, MissingFileIsEmptyTextOrAFailureThatNamesThePath) {
    EXPECT_EQ(FileStorage("dir/file", false).Load(), "");
    EXPECT_EQ(TextOfRuntimeError([] { FileStorage("dir/file", true).Load(); }), ReadFailure("dir/file"));
}

TEST_F(FileStorageTest, WhatIsNoRegularFileCountsAsOneThatDidNotOpen) {
    files.PutFolder("folder");
    files.PutLink("link");
    files.PutDevice("device");

    for (const std::string path : {"folder", "link", "device"}) {
        EXPECT_EQ(FileStorage(path, false).Load(), "");
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(path, true).Load(); }), ReadFailure(path));
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(path, true).Save("x"); }), WriteFailure(path));
    }
    EXPECT_THAT(files.Contents(), IsEmpty());
}

TEST_F(FileStorageTest, SaveMakesTheFoldersThenReplacesTheWholeFile) {
    FileStorage("a/b/file", true).Save("text");

    EXPECT_THAT(files.Texts(), ElementsAre("CreateDirectories a/b Synced", "BeginReplace a/b/file Synced",
                                           "Complete a/b/file Synced"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("a/b/file", "text")));
    EXPECT_EQ(files.OpenReplacements(), 0);
}

TEST_F(FileStorageTest, SaveReplacesLongerContentByShorterAndByNone) {
    files.Put("file", "a longer text");

    FileStorage("file", true).Save(std::string("a\0b", 3));
    EXPECT_EQ(files.Content("file"), std::string("a\0b", 3));
    FileStorage("file", true).Save("");
    EXPECT_EQ(files.Content("file"), "");
}

TEST_F(FileStorageTest, CachesAreSavedWithoutSyncing) {
    FileStorage("a/file", true, nullptr, Durability::Unsynced).Save("text");

    EXPECT_THAT(files.Texts(), ElementsAre("CreateDirectories a Unsynced", "BeginReplace a/file Unsynced",
                                           "Complete a/file Unsynced"));
}

TEST_F(FileStorageTest, APathWithoutParentMakesNoFolder) {
    FileStorage("file", true).Save("x");
    FileStorage("/root-file", true).Save("y");

    EXPECT_THAT(files.Texts(), ElementsAre("BeginReplace file Synced", "Complete file Synced",
                                           "BeginReplace /root-file Synced", "Complete /root-file Synced"));
}

TEST_F(FileStorageTest, TheLastSeparatorOfEitherKindEndsTheParent) {
    const std::vector<std::pair<std::string, std::string>> parents = {
        {"a\\b\\c.txt", "a\\b"}, {"a\\b/c.txt", "a\\b"}, {"a/b\\c.txt", "a/b"}, {"c//d", "c/"}};
    for (const auto& [path, parent] : parents) {
        files.ClearOperations();
        files.PutFolder(parent);
        FileStorage(path, true).Save("x");
        EXPECT_EQ(files.Texts().front(), "CreateDirectories " + parent + " Synced");
        EXPECT_EQ(files.Content(path), "x") << path;
    }
}

TEST_F(FileStorageTest, FoldersThatCannotBeMadeAreAFilesystemErrorOfTheirPath) {
    files.FailEvery("CreateDirectories", EACCES);

    try {
        FileStorage("a/b/file", true).Save("x");
        FAIL() << "nothing thrown";
    } catch (const std::filesystem::filesystem_error& failure) {
        // The number is the system's, and so are its category and its words.
        const std::error_code refused(EACCES, std::system_category());
        EXPECT_EQ(failure.what(), "create_directories: " + refused.message() + ": \"a/b\"");
        EXPECT_EQ(failure.path1(), "a/b");
        EXPECT_EQ(failure.code(), refused);
    }
    EXPECT_THAT(files.Texts(), ElementsAre("CreateDirectories a/b Synced"));
}

TEST_F(FileStorageTest, AFileThatDoesNotOpenForWritingKeepsItsContentAndCallsNoHook) {
    for (const int error : {ENOSPC, EROFS, EACCES, EMFILE}) {
        files.Put("a/file", "old");
        const auto hook = std::make_shared<RecordingHook>(files);
        files.FailEvery("BeginReplace", error);
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage("a/file", true, hook).Save("new"); }),
                  WriteFailure("a/file"));
        EXPECT_EQ(files.Content("a/file"), "old");
        EXPECT_THAT(hook->saved, IsEmpty());
    }
}

TEST_F(FileStorageTest, AFailureAfterOpeningGoesUnreportedKeepsTheOldFileAndStillCallsTheHook) {
    files.Put("a/file", "old");
    files.FailEvery("Complete", EIO);
    const auto hook = std::make_shared<RecordingHook>(files);

    EXPECT_NO_THROW(FileStorage("a/file", true, hook).Save("new"));

    EXPECT_EQ(files.Content("a/file"), "old");
    EXPECT_THAT(hook->saved, ElementsAre(Pair("a/file", std::optional<std::string>("old"))));
    EXPECT_EQ(files.OpenReplacements(), 0);
}

TEST_F(FileStorageTest, TheHookIsCalledOnceWithThePathOfTheFinishedFile) {
    const auto hook = std::make_shared<RecordingHook>(files);
    FileStorage storage("a/file", true, hook);

    storage.Save("new");
    EXPECT_THAT(hook->saved, ElementsAre(Pair("a/file", std::optional<std::string>("new"))));
    storage.Load();
    EXPECT_EQ(hook->saved.size(), 1u);
    storage.Save("");
    EXPECT_EQ(hook->saved.size(), 2u);  // an empty file is a file
}

TEST_F(FileStorageTest, WhicheverOperationFailsTheFileIsWhole) {
    for (std::size_t n = 1; n <= 4; ++n) {
        files.Put("a/file", "old");
        files.ClearOperations();
        files.FailNth(n, ENOSPC);
        const std::string outcome = TextOfRuntimeError([] { FileStorage("a/file", true).Save("new"); });
        EXPECT_EQ(files.Content("a/file"), n == 4 ? "new" : "old") << n;
        EXPECT_EQ(outcome, n == 1   ? "a filesystem_error"
                           : n == 2 ? WriteFailure("a/file")
                                    : "nothing thrown");
        EXPECT_EQ(files.OpenReplacements(), 0);
    }
}

// --- on a real disk ---

TEST(FileStorageOnDiskTest, ANameThatIsTooLongDoesNotOpenAndLeavesNoTrace) {
    const TemporaryDirectory directory;
    const std::string path = directory / std::string(300, 'x');

    EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(path, true).Save("x"); }), WriteFailure(path));
    EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(path, true).Load(); }), ReadFailure(path));
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

TEST(FileStorageOnDiskTest, AFullOrReadOnlyDiskLeavesTheOldFileAndNothingBesideIt) {
    for (const int error : {ENOSPC, EROFS}) {
        const TemporaryDirectory directory;
        directory.Write("file", "old");
        FaultyFiles files;
        files.FailEvery("BeginReplace", error);
        const Platform::Testing::Replace<Platform::IFiles> replaced(files);

        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(directory / "file", true).Save("new"); }),
                  WriteFailure(directory / "file"));

        EXPECT_EQ(directory.Read("file"), "old");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path()), {}), 1);
    }
}

TEST(FileStorageOnDiskTest, AFileThatMayNotBeReplacedIsNotOpenedCallsNoHookAndIsNoSuccess) {
    const TemporaryDirectory directory;
    const std::string path = directory / "file";
    FaultyFiles files;
    // As a file that is immutable or mounted does, a folder that comes in between refuses the new file.
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name == "Complete") std::filesystem::create_directory(path);
        return std::nullopt;
    });
    const Platform::Testing::Replace<Platform::IFiles> replaced(files);
    const MemoryFiles none;
    const auto hook = std::make_shared<RecordingHook>(none);

    EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(path, true, hook).Save("new"); }), WriteFailure(path));

    EXPECT_THAT(hook->saved, IsEmpty());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path()), {}), 1);
}

}  // namespace
}  // namespace Ombry::Tests
