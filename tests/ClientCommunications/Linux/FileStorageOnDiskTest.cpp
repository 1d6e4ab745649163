// What the modes, the kinds and the errors of this system's files do to a storage.

#include "ClientCommunications/Impl/FileStorage.h"
#include "tests/ClientCommunications/FileStorageTexts.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>
#include <vector>

namespace Ombry::Tests {
namespace {

using ClientCommunications::FileStorage;

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST(FileStorageOnThisDiskTest, SavesAndLoadsEveryByteWithModesForTheOwnerAlone) {
    const TemporaryDirectory directory;
    const mode_t previous = umask(0);
    FileStorage storage(directory / "a/b/file", true);
    std::string content;
    for (int i = 0; i < 100000; ++i)
        content += static_cast<char>(i % 256);

    storage.Save(content);
    umask(previous);

    EXPECT_EQ(storage.Load(), content);
    EXPECT_EQ(ModeOf(directory / "a"), 0700u);
    EXPECT_EQ(ModeOf(directory / "a/b"), 0700u);
    EXPECT_EQ(ModeOf(directory / "a/b/file"), 0600u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory / "a/b"), {}), 1);
}

TEST(FileStorageOnThisDiskTest, AReplacedFileLosesWiderModes) {
    const TemporaryDirectory directory;
    directory.Write("file", "old");
    ASSERT_EQ(chmod((directory / "file").c_str(), 0666), 0);

    FileStorage(directory / "file", true).Save("new");

    EXPECT_EQ(ModeOf(directory / "file"), 0600u);
    EXPECT_EQ(directory.Read("file"), "new");
}

TEST(FileStorageOnThisDiskTest, NeverGoesThroughALink) {
    const TemporaryDirectory directory;
    directory.Write("target", "target's");
    std::filesystem::create_symlink(directory / "target", directory / "link");
    std::filesystem::create_symlink(directory / "nowhere", directory / "dangling");

    for (const std::string name : {"link", "dangling"}) {
        EXPECT_EQ(FileStorage(directory / name, false).Load(), "");
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(directory / name, true).Load(); }),
                  ReadFailure(directory / name));
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(directory / name, true).Save("x"); }),
                  WriteFailure(directory / name));
        EXPECT_TRUE(std::filesystem::is_symlink(directory / name));
    }
    EXPECT_EQ(directory.Read("target"), "target's");
    EXPECT_FALSE(std::filesystem::exists(directory / "nowhere"));
}

TEST(FileStorageOnThisDiskTest, AFolderOrAPipeInThePlaceOfTheFileIsNotOpened) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "folder");
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);

    for (const std::string name : {"folder", "pipe"}) {
        EXPECT_EQ(FileStorage(directory / name, false).Load(), "");
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(directory / name, true).Load(); }),
                  ReadFailure(directory / name));
        EXPECT_EQ(TextOfRuntimeError([&] { FileStorage(directory / name, true).Save("x"); }),
                  WriteFailure(directory / name));
    }
    EXPECT_TRUE(std::filesystem::is_directory(directory / "folder"));
}

TEST(FileStorageOnThisDiskTest, AFileInThePlaceOfAFolderIsAFilesystemError) {
    const TemporaryDirectory directory;
    directory.Write("file", "content");

    try {
        FileStorage(directory / "file/below", true).Save("x");
        FAIL() << "nothing thrown";
    } catch (const std::filesystem::filesystem_error& failure) {
        EXPECT_EQ(failure.what(), "create_directories: Not a directory: \"" + directory / "file" + "\"");
    }
    EXPECT_EQ(directory.Read("file"), "content");
}

/// Below Wine, which cannot replace a file that is open, a save is refused here.
TEST(FileStorageOnThisDiskTest, WhatTwoProcessesSaveAtOnceIsWholeAndNeverMissing) {
    const TemporaryDirectory directory;
    const std::string even(5000, 'e'), odd(7000, 'o');
    FileStorage(directory / "file", true).Save(even);
    std::atomic<int> writers{2};
    std::vector<std::thread> threads;
    for (const std::string& text : {even, odd}) {
        threads.emplace_back([&directory, &writers, text] {
            for (int i = 0; i < 50; ++i)
                FileStorage(directory / "file", true).Save(text);
            --writers;
        });
    }
    while (writers > 0) {
        const std::string seen = FileStorage(directory / "file", true).Load();  // throws if it is missing
        EXPECT_TRUE(seen == even || seen == odd) << seen.size();
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path()), {}), 1);
}

}  // namespace
}  // namespace Ombry::Tests
