#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/KeyHash.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/Meeting.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/ObservedThread.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace Ombry::Tests {
namespace {

using ClientCommunications::DirectoryKeyValueStorage;
using ClientCommunications::ReadEntry;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// SHA-256 of "abc", with the solidus of its Base64 text replaced.
const std::string AbcEntry = "ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD!YfIAFa0=";
const std::string AbcFile = "dir/" + AbcEntry;

class DirectoryKeyValueStorageTest : public testing::Test {
protected:
    MemoryFiles files;
    Platform::Testing::Replace<Platform::IFiles> replaced{files};
    DirectoryKeyValueStorage storage{"dir"};
};

TEST_F(DirectoryKeyValueStorageTest, AKeyIsStoredUnderItsHashWithSolidusReplaced) {
    storage.SetByKey("abc", "value");

    EXPECT_THAT(files.Contents(), ElementsAre(Pair(AbcFile + "-p", "value")));
    EXPECT_EQ(storage.GetByKey("abc"), "value");
    EXPECT_EQ(storage.GetEntry(AbcEntry), "value");
    EXPECT_THAT(storage.getEntriesNames(), ElementsAre(AbcEntry));
}

TEST_F(DirectoryKeyValueStorageTest, PlusAndEqualsSignsStayAndEverySolidusGoes) {
    for (int i = 0; i < 50; ++i) {
        const std::string key = "key" + std::to_string(i);
        std::string expected = ClientCommunications::getSHA256HashBase64Encoded(key);
        std::replace(expected.begin(), expected.end(), '/', '!');
        storage.SetByKey(key, key);
        EXPECT_EQ(files.Content("dir/" + expected + "-p"), key);
    }
    EXPECT_EQ(storage.getEntriesNames().size(), 50u);
}

TEST_F(DirectoryKeyValueStorageTest, SetStagesDeletesAndRenames) {
    storage.SetByKey("abc", "value");

    EXPECT_THAT(files.Texts(),
                ElementsAre("CreateDirectories dir Unsynced", "BeginReplace " + AbcFile + "-s Unsynced",
                            "Complete " + AbcFile + "-s Unsynced", "Remove " + AbcFile + "-p Unsynced",
                            "Rename " + AbcFile + "-s " + AbcFile + "-p"));
}

TEST_F(DirectoryKeyValueStorageTest, GetReadsOnceIfTheCommittedFileIsThere) {
    files.Put(AbcFile + "-p", "value");

    EXPECT_EQ(storage.GetByKey("abc"), "value");
    EXPECT_THAT(files.Texts(), ElementsAre("Read " + AbcFile + "-p"));
}

TEST_F(DirectoryKeyValueStorageTest, AKeyNeverWrittenIsEmptyAndLeavesNothing) {
    EXPECT_EQ(storage.GetByKey("abc"), "");
    EXPECT_EQ(storage.GetEntry("none"), "");
    EXPECT_THAT(files.Contents(), IsEmpty());
    EXPECT_FALSE(files.Exists("dir"));
}

TEST_F(DirectoryKeyValueStorageTest, GetFinishesASaveThatWasCutOff) {
    files.Put(AbcFile + "-s", "staged");

    EXPECT_EQ(storage.GetByKey("abc"), "staged");
    EXPECT_THAT(files.Contents(), ElementsAre(Pair(AbcFile + "-p", "staged")));
}

TEST_F(DirectoryKeyValueStorageTest, RemoveTakesBothFilesAndIgnoresTheResults) {
    files.Put(AbcFile + "-p", "1");
    files.Put(AbcFile + "-s", "2");
    files.Put("dir/other-p", "3");

    storage.RemoveByKey("abc");
    EXPECT_NO_THROW(storage.RemoveByKey("abc"));
    EXPECT_THAT(files.Texts(),
                ElementsAre("Remove " + AbcFile + "-p Unsynced", "Remove " + AbcFile + "-s Unsynced",
                            "Remove " + AbcFile + "-p Unsynced", "Remove " + AbcFile + "-s Unsynced"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/other-p", "3")));

    storage.RemoveEntry("other");
    EXPECT_THAT(files.Contents(), IsEmpty());
}

TEST_F(DirectoryKeyValueStorageTest, EntriesAreListedOnceWithoutTheirLastSuffix) {
    for (const std::string file : {"both-p", "both-s", "committed-p", "staged-s", "plain", "x-p-s", "y-s-p",
                                   "z-s-s", "-p", "p", "w-P", ".hidden-p"}) {
        files.Put("dir/" + file, "");
    }
    files.PutFolder("dir/folder-p");
    files.Put("dir/below/deep-p", "");

    EXPECT_THAT(storage.getEntriesNames(), ElementsAre("", ".hidden", "below", "both", "committed", "folder",
                                                       "p", "plain", "staged", "w-P", "x-p", "y-s", "z-s"));
    EXPECT_THAT(files.Texts(), ElementsAre("List dir"));
}

TEST_F(DirectoryKeyValueStorageTest, AFolderThatIsMissingOrCannotBeListedHasNoEntries) {
    EXPECT_THAT(storage.getEntriesNames(), IsEmpty());
    files.Put("dir", "a file");
    EXPECT_THAT(storage.getEntriesNames(), IsEmpty());

    MemoryFiles denied;
    const Platform::Testing::Replace<Platform::IFiles> scope(denied);
    denied.Put("dir/a-p", "");
    denied.FailEvery("List", EACCES);
    EXPECT_THAT(storage.getEntriesNames(), IsEmpty());
}

TEST_F(DirectoryKeyValueStorageTest, ByKeyOperationsGoThroughTheVirtualEntryOperations) {
    class Watching : public DirectoryKeyValueStorage {
    public:
        using DirectoryKeyValueStorage::DirectoryKeyValueStorage;
        std::string GetEntry(const std::string& name) override { return "got " + name; }
        void RemoveEntry(const std::string& name) override { removed = name; }
        std::string removed;
    };
    Watching watching("dir");

    EXPECT_EQ(watching.GetByKey("abc"), "got " + AbcEntry);
    watching.RemoveByKey("abc");
    EXPECT_EQ(watching.removed, AbcEntry);
    EXPECT_TRUE(files.Texts().empty());
}

TEST_F(DirectoryKeyValueStorageTest, AFailedSaveGoesOutAndReleasesTheKey) {
    files.Put(AbcFile + "-p", "old");
    files.FailEvery("BeginReplace", ENOSPC);
    try {
        storage.SetByKey("abc", "new");
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(failure.what(), "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" +
                                      AbcFile + "-s' for write.");
    }
    files.Decide(nullptr);
    storage.SetByKey("abc", "new");
    EXPECT_EQ(storage.GetByKey("abc"), "new");
}

TEST_F(DirectoryKeyValueStorageTest, AReadOfAKeyWaitsForItsWriterAndReadsOfOthersDoNot) {
    files.Put(AbcFile + "-p", "old");
    files.Put("dir/other-p", "other");
    std::unique_ptr<ObservedThread> reader;
    std::string seen;
    bool waited = false;
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name != "Remove") return std::nullopt;
        // In the middle of the write, where the entry has no committed file for a moment.
        reader = std::make_unique<ObservedThread>([&] { seen = storage.GetByKey("abc"); });
        waited = reader->IsBlocked();
        EXPECT_EQ(storage.GetEntry("other"), "other");
        return std::nullopt;
    });

    storage.SetByKey("abc", "new");
    reader->Join();

    EXPECT_TRUE(waited);
    EXPECT_EQ(seen, "new");
}

TEST_F(DirectoryKeyValueStorageTest, RemovalWaitsForReadersAndReadersShare) {
    files.Put(AbcFile + "-p", "value");
    Meeting bothRead(2);
    std::atomic<int> reads{0};
    std::unique_ptr<ObservedThread> remover;
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name != "Read" || operation.path != AbcFile + "-p") return std::nullopt;
        bothRead.ArriveAndWait();  // only two reads at once get past this
        if (reads++ == 0) {
            remover = std::make_unique<ObservedThread>([&] { storage.RemoveByKey("abc"); });
            EXPECT_TRUE(remover->IsBlocked());
        }
        bothRead.ArriveAndWait();
        return std::nullopt;
    });
    std::string first;
    ObservedThread other([&] { first = storage.GetByKey("abc"); });
    EXPECT_EQ(storage.GetByKey("abc"), "value");
    other.Join();
    EXPECT_EQ(first, "value");
    remover->Join();
    EXPECT_THAT(files.Contents(), IsEmpty());
}

TEST_F(DirectoryKeyValueStorageTest, AReadOfAKeyWaitsForARecoveryOfIt) {
    files.Put(AbcFile + "-s", "staged");
    std::unique_ptr<ObservedThread> reader;
    std::string seen;
    bool waited = false;
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name != "Rename" || reader) return std::nullopt;
        reader = std::make_unique<ObservedThread>([&] { seen = storage.GetByKey("abc"); });
        waited = reader->IsBlocked();
        return std::nullopt;
    });

    EXPECT_EQ(storage.GetByKey("abc"), "staged");
    reader->Join();

    EXPECT_TRUE(waited);
    EXPECT_EQ(seen, "staged");
}

TEST_F(DirectoryKeyValueStorageTest, ManyReadersOfAnEntryThatMustRecoverAllGetItsText) {
    for (int round = 0; round < 20; ++round) {
        const std::string name = "entry" + std::to_string(round);
        files.Put("dir/" + name + "-s", "staged");
        std::array<std::string, 4> seen;
        {
            std::vector<std::unique_ptr<ObservedThread>> threads;
            for (std::string& text : seen)
                threads.push_back(std::make_unique<ObservedThread>([&] { text = storage.GetEntry(name); }));
        }
        EXPECT_THAT(seen, testing::Each("staged"));
    }
}

/// Rereading, over files whose states tell as little as they may.
class DirectoryKeyValueStorageRereadTest : public DirectoryKeyValueStorageTest {
protected:
    using Known = std::shared_ptr<const ReadEntry>;

    static constexpr Duration ClockStep = std::chrono::seconds(3);
    static constexpr Duration Tick = Duration(1);

    /// What is known of the entry once its file, of that text, has long been as it is.
    Known ReadSettled(const std::string& text) {
        files.Put(AbcFile + "-p", text);
        clock.Advance(std::chrono::minutes(1));
        Known known = storage.Reread(AbcEntry, nullptr);
        EXPECT_EQ(known->text, text);
        files.ClearOperations();
        return known;
    }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
};

TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatIsAsItWasIsLookedAtAndNotRead) {
    const Known known = ReadSettled("value");

    EXPECT_EQ(storage.Reread(AbcEntry, known), known);
    clock.Advance(std::chrono::hours(1));
    EXPECT_EQ(storage.Reread(AbcEntry, known), known);

    EXPECT_THAT(files.Texts(), ElementsAre("State " + AbcFile + "-p", "State " + AbcFile + "-p"));
}

// What was read right behind a save is not relied on, so that the second reading is the one that lasts.
TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatWasReadTwiceIsLookedAtAndNotRead) {
    files.Put(AbcFile + "-p", "value");
    const Known first = storage.Reread(AbcEntry, nullptr);
    clock.Advance(std::chrono::minutes(1));
    const Known second = storage.Reread(AbcEntry, first);
    EXPECT_NE(second, first);
    files.ClearOperations();

    EXPECT_EQ(storage.Reread(AbcEntry, second), second);
    EXPECT_THAT(files.Texts(), ElementsAre("State " + AbcFile + "-p"));
}

TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatChangedWithinAStepOfTheClockBeforeItWasReadIsReadAgain) {
    for (const Duration age : {Duration(0), Tick, ClockStep - Tick, ClockStep, -ClockStep}) {
        files.Put(AbcFile + "-p", "old");
        clock.SetNow(clock.Now() + age);
        const Known known = storage.Reread(AbcEntry, nullptr);
        clock.SetNow(clock.Now() - age);
        files.Put(AbcFile + "-p", "new");  // of the same state
        clock.SetNow(clock.Now() + std::chrono::minutes(1));

        EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "new") << age.count();
    }
    files.Put(AbcFile + "-p", "old");
    clock.Advance(ClockStep + Tick);
    const Known known = storage.Reread(AbcEntry, nullptr);
    EXPECT_EQ(storage.Reread(AbcEntry, known), known);
}

TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatChangedAtTheEndOfTimeIsReadAgain) {
    const auto putAtTheEndOfTime = [&](const std::string& text) {
        const TimePoint now = clock.Now();
        clock.SetNow(TimePoint::max());
        files.Put(AbcFile + "-p", text);
        clock.SetNow(now);
    };
    putAtTheEndOfTime("old");
    const Known known = storage.Reread(AbcEntry, nullptr);
    EXPECT_EQ(known->text, "old");
    putAtTheEndOfTime("new");

    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "new");
}

TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatWasReplacedIsReadAgain) {
    Known known = ReadSettled("value");
    for (const std::string text : {"VALUE", "longer value", "", "value"}) {
        files.Put(AbcFile + "-p", text);
        known = storage.Reread(AbcEntry, known);
        EXPECT_EQ(known->text, text);
        clock.Advance(std::chrono::minutes(1));
        known = storage.Reread(AbcEntry, known);
        EXPECT_EQ(known->text, text);
    }
}

TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatIsReplacedWhileItIsReadIsReadAgain) {
    // The new file may look older than the time of its arrival: a file system has a clock of its own.
    for (const Duration lag : {Duration(0), Duration(std::chrono::seconds(30))}) {
        for (int n = 1; n <= 3; ++n) {
            files.Put(AbcFile + "-p", "old");
            clock.Advance(std::chrono::minutes(1));
            int operations = 0;
            files.Decide([&](const FileOperation&) -> std::optional<int> {
                if (++operations != n) return std::nullopt;
                clock.SetNow(clock.Now() - lag);
                files.Put(AbcFile + "-p", "new");
                // A thread may have to wait for its processor.
                clock.SetNow(clock.Now() + lag + std::chrono::minutes(1));
                return std::nullopt;
            });
            Known known = storage.Reread(AbcEntry, nullptr);
            known = storage.Reread(AbcEntry, known);
            files.Decide(nullptr);

            EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "new") << n;
        }
    }
}

TEST_F(DirectoryKeyValueStorageRereadTest, WhatWasReadLaterThanNowIsReadAgain) {
    const TimePoint start = clock.Now();
    const Known known = ReadSettled("old");
    clock.SetNow(start);
    files.Put(AbcFile + "-p", "new");  // of the same state, since the clock was set back

    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "new");
    clock.SetNow(known->readAt - Tick);
    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "new");
}

TEST_F(DirectoryKeyValueStorageRereadTest, AFileThatIsNoLongerToBeHadIsNotRemembered) {
    const Known known = ReadSettled("value");

    files.PutLink(AbcFile + "-p");
    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "");
    EXPECT_TRUE(files.Remove(AbcFile + "-p"));
    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "");
    files.Put(AbcFile + "-s", "staged");
    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "staged");
    EXPECT_THAT(files.Contents(), ElementsAre(Pair(AbcFile + "-p", "staged")));

    // Taking a right away is a change as well.
    const Known readable = ReadSettled("value");
    files.Put(AbcFile + "-p", "value");
    files.FailEvery("Read", EACCES);
    EXPECT_EQ(storage.Reread(AbcEntry, readable)->text, "");
}

TEST_F(DirectoryKeyValueStorageRereadTest, AnEntryThatIsNotThereIsLookedForEachTime) {
    const Known known = storage.Reread(AbcEntry, nullptr);
    EXPECT_EQ(known->text, "");
    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "");
    EXPECT_NE(storage.Reread(AbcEntry, known), known);

    files.Put(AbcFile + "-p", "value");
    EXPECT_EQ(storage.Reread(AbcEntry, known)->text, "value");
}

TEST_F(DirectoryKeyValueStorageRereadTest, AStateThatCannotBeHadMakesItARead) {
    const Known known = ReadSettled("value");
    files.FailEvery("State", EACCES);

    const Known again = storage.Reread(AbcEntry, known);
    EXPECT_EQ(again->text, "value");
    EXPECT_NE(storage.Reread(AbcEntry, again), again);
    EXPECT_NE(storage.Reread(AbcEntry, again), known);

    files.Decide(nullptr);
    EXPECT_NE(storage.Reread(AbcEntry, again), again);  // nothing was known of its file
}

TEST_F(DirectoryKeyValueStorageRereadTest, ALookAtAKeyWaitsForItsWriter) {
    const Known known = ReadSettled("old");
    std::unique_ptr<ObservedThread> reader;
    std::string seen;
    bool waited = false;
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name != "BeginReplace") return std::nullopt;
        reader = std::make_unique<ObservedThread>([&] { seen = storage.Reread(AbcEntry, known)->text; });
        waited = reader->IsBlocked();
        return std::nullopt;
    });

    storage.SetByKey("abc", "new");
    reader->Join();

    EXPECT_TRUE(waited);
    EXPECT_EQ(seen, "new");
}

TEST(DirectoryKeyValueStorageOnDiskTest, WhatAnotherProcessStoredCountsAtOnce) {
    const TemporaryDirectory directory;
    FaultyFiles files;
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles(files);
    // Some time after the files were made, which the real disk dates.
    FakeClock clock(Platform::Production<Platform::IClock>().Now() + std::chrono::hours(1));
    const Platform::Testing::Replace<Platform::IClock> replacedClock(clock);
    DirectoryKeyValueStorage ours(directory.Path()), theirs(directory.Path());
    theirs.SetByKey("abc", "0");
    auto known = ours.Reread(AbcEntry, nullptr);
    for (char text = '1'; text <= '9'; ++text) {
        files.ClearOperations();
        EXPECT_EQ(ours.Reread(AbcEntry, known), known);
        EXPECT_THAT(files.Texts(), ElementsAre("State " + directory / (AbcEntry + "-p")));

        theirs.SetByKey("abc", std::string(1, text));
        known = ours.Reread(AbcEntry, known);
        EXPECT_EQ(known->text, std::string(1, text));
    }
    theirs.RemoveByKey("abc");
    EXPECT_EQ(ours.Reread(AbcEntry, known)->text, "");
}

TEST(DirectoryKeyValueStorageOnDiskTest, ReadersAlwaysSeeAWholeValueWhileWritersReplaceIt) {
    const TemporaryDirectory directory;
    DirectoryKeyValueStorage storage(directory / "cache");
    const std::string even(5000, 'e'), odd(7000, 'o');
    storage.SetByKey("key", even);
    std::atomic<bool> broken{false};
    {
        std::vector<std::unique_ptr<ObservedThread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<ObservedThread>([&, t] {
                for (int i = 0; i < 100; ++i) {
                    if (t == 0) storage.SetByKey("key", i % 2 == 0 ? odd : even);
                    if (t == 1) storage.SetByKey("other" + std::to_string(i), "x");
                    if (t >= 2) {
                        const std::string seen = storage.GetByKey("key");
                        if (seen != even && seen != odd) broken = true;
                    }
                    // Files of saves under way are no entries.
                    for (const std::string& name : storage.getEntriesNames()) {
                        if (name.size() != 44) broken = true;
                    }
                }
            }));
        }
    }
    EXPECT_FALSE(broken);
    EXPECT_EQ(storage.getEntriesNames().size(), 101u);
}

TEST(DirectoryKeyValueStorageOnDiskTest, ProcessesThatShareAFolderSeeAWholeValueOrNone) {
    const TemporaryDirectory directory;
    const std::string even(5000, 'e'), odd(7000, 'o');
    std::atomic<bool> broken{false};
    std::atomic<int> writers{2};
    {
        std::vector<std::unique_ptr<ObservedThread>> processes;
        for (int p = 0; p < 4; ++p) {
            processes.push_back(std::make_unique<ObservedThread>([&, p] {
                DirectoryKeyValueStorage storage(directory.Path());  // with locks that the others do not know
                for (int i = 0; p < 2 && i < 100; ++i)
                    storage.SetByKey("abc", i % 2 == 0 ? odd : even);
                if (p < 2) --writers;
                while (writers > 0) {
                    const std::string seen = storage.GetByKey("abc");
                    if (!seen.empty() && seen != even && seen != odd) broken = true;
                }
            }));
        }
    }
    EXPECT_FALSE(broken);
    for (const auto& file : std::filesystem::directory_iterator(directory.Path()))
        EXPECT_EQ(file.path().filename().string().substr(0, 44), AbcEntry);
}

TEST(DirectoryKeyValueStorageOnDiskTest, WhatACrashLeftOfASaveIsNoEntry) {
    const TemporaryDirectory directory;
    directory.Write(".ombry-0123456789abcdef.tmp", "half");
    directory.Write("entry-s", "staged");
    DirectoryKeyValueStorage storage(directory.Path());

    EXPECT_THAT(storage.getEntriesNames(), ElementsAre("entry"));
    EXPECT_EQ(storage.GetEntry("entry"), "staged");
}

TEST(DirectoryKeyValueStorageOnDiskTest, NameOfAnEntryIsKnownByItsShape) {
    const std::string name = DirectoryKeyValueStorage::EntryNameOf("key");
    EXPECT_TRUE(DirectoryKeyValueStorage::IsEntryName(name));
    EXPECT_TRUE(DirectoryKeyValueStorage::IsEntryName(std::string(42, '!') + "+="));
    for (const std::string& other : {std::string(), std::string("="), name + "=", name.substr(1),
                                     "." + name.substr(1), name.substr(0, 43) + "x"})
        EXPECT_FALSE(DirectoryKeyValueStorage::IsEntryName(other)) << other;
}

}  // namespace
}  // namespace Ombry::Tests
