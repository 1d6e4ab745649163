#include "Platform/SecureWipe.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FaultyCertificates.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using Platform::Durability;
using testing::ElementsAre;
using testing::Pair;

TEST(MemoryFilesTest, EveryOperationIsRecordedInOrderWithItsDurability) {
    MemoryFiles files;
    files.Put("a/b", "x");
    static_cast<void>(files.CreateDirectories("c", Durability::Synced));
    static_cast<void>(files.Read("a/b"));
    static_cast<void>(files.State("a/b"));
    static_cast<void>((*files.BeginReplace("c/d", 1, Durability::Synced))->Complete("y"));
    static_cast<void>(files.BeginReplace("c/e", 1, Durability::Unsynced));
    static_cast<void>(files.Rename("c/d", "c/f"));
    static_cast<void>(files.List("c"));
    static_cast<void>(files.Remove("a/b", Durability::Synced));
    EXPECT_THAT(files.Texts(),
                ElementsAre("CreateDirectories c Synced", "Read a/b", "State a/b", "BeginReplace c/d Synced",
                            "Complete c/d Synced", "BeginReplace c/e Unsynced", "Rename c/d c/f", "List c",
                            "Remove a/b Synced"));
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("c/f", "y")));
    EXPECT_EQ(files.OpenReplacements(), 0);
}

TEST(MemoryFilesTest, TheNthOperationFailsWithoutEffectAndTheOthersRun) {
    MemoryFiles files;
    files.Put("a", "old");
    files.FailNth(2, 28);
    auto replacement = files.BeginReplace("a", 3, Durability::Synced);
    ASSERT_TRUE(replacement);
    EXPECT_EQ(files.OpenReplacements(), 1);
    EXPECT_EQ((*replacement)->Complete("new").Error(), 28);
    EXPECT_EQ(files.Content("a"), "old");
    EXPECT_TRUE(files.Read("a"));
}

TEST(MemoryFilesTest, NamedOperationFailsOnOnePathOrOnAll) {
    MemoryFiles files;
    files.Put("a", "");
    files.Put("b", "");
    files.FailEvery("Remove", 13, "a");
    EXPECT_EQ(files.Remove("a").Error(), 13);
    EXPECT_TRUE(files.Remove("b"));
    files.FailEvery("Read", 5);
    EXPECT_EQ(files.Read("a").Error(), 5);
    EXPECT_TRUE(files.Remove("a"));
}

TEST(MemoryFilesTest, StateTellsNoMoreThanSizeAndTimeOfTheLastChange) {
    FakeClock clock;
    const Platform::Testing::Replace<Platform::IClock> replaced(clock);
    MemoryFiles files;
    files.Put("a", "old");
    const auto old = files.State("a");
    EXPECT_EQ(old->changed, clock.Now());
    files.Put("a", "new");
    EXPECT_EQ(*files.State("a"), *old);

    const auto changes = {std::function([&] { files.Put("a", "old"); }), std::function([&] {
                              ASSERT_TRUE((*files.BeginReplace("a", 3, Durability::Synced))->Complete("old"));
                          }),
                          std::function([&] { ASSERT_TRUE(files.Rename("b", "a")); })};
    files.Put("b", "old");
    for (const auto& change : changes) {
        clock.Advance(Duration(1));
        change();
        EXPECT_EQ(files.State("a")->changed, clock.Now());
    }
    files.Put("a", "long");
    EXPECT_EQ(files.State("a")->size, 4u);
}

TEST(MemoryFilesTest, DeviceIsNoFile) {
    MemoryFiles files;
    files.PutDevice("dev");
    EXPECT_FALSE(files.Read("dev"));
    EXPECT_FALSE(files.State("dev"));
    EXPECT_FALSE(files.BeginReplace("dev", 1, Durability::Unsynced));
    EXPECT_TRUE(files.Exists("dev"));
}

TEST(FaultyFilesTest, ForwardsRecordsAndFailsTheChosenOperation) {
    TemporaryDirectory directory;
    FaultyFiles files;
    files.FailNth(2, 28);
    const std::string path = directory / "file";
    {
        auto replacement = files.BeginReplace(path, 1, Durability::Synced);
        ASSERT_TRUE(replacement);
        EXPECT_EQ((*replacement)->Complete("x").Error(), 28);
    }
    EXPECT_EQ(files.Read(path).Error(), 2);
    ASSERT_TRUE((*files.BeginReplace(path, 1, Durability::Unsynced))->Complete("y"));
    EXPECT_EQ(directory.Read("file"), "y");
    EXPECT_EQ(files.State(path)->size, 1u);
    files.FailEvery("State", 5);
    EXPECT_EQ(files.State(path).Error(), 5);
    EXPECT_THAT(files.Texts(),
                ElementsAre("BeginReplace " + path + " Synced", "Complete " + path + " Synced",
                            "Read " + path, "BeginReplace " + path + " Unsynced",
                            "Complete " + path + " Unsynced", "State " + path, "State " + path));
}

TEST(FaultyCertificatesTest, FailsTheChosenCallOfTheChosenOperationOnly) {
    FaultyCertificates certificates;
    certificates.Fail("BinaryToBase64", 8, 2);
    const std::vector<std::uint8_t> bytes{1, 2, 3};
    char text[4];
    EXPECT_TRUE(certificates.BinaryToBase64(bytes, nullptr, 0));
    EXPECT_EQ(certificates.BinaryToBase64(bytes, text, 4).Error(), 8);
    EXPECT_TRUE(certificates.BinaryToBase64(bytes, text, 4));
    EXPECT_EQ(std::string(text, 4), "AQID");
    EXPECT_THAT(certificates.calls, ElementsAre("BinaryToBase64", "BinaryToBase64", "BinaryToBase64"));
}

TEST(FakeClockTest, ThreadThatNeverWaitsFailsTheTestByItsNameRatherThanHangIt) {
    FakeClock clock;
    std::string text;
    for (const auto await : {&FakeClock::AwaitWaiters, &FakeClock::AwaitWaits}) {
        try {
            (clock.*await)(2, std::chrono::milliseconds(1));
        } catch (const std::runtime_error& failure) {
            text += failure.what() + std::string("\n");
        }
    }
    const std::string name = "FakeClockTest.ThreadThatNeverWaitsFailsTheTestByItsNameRatherThanHangIt: ";
    EXPECT_EQ(text, name + "0 of 2 threads that wait came.\n" + name + "0 of 2 waits came.\n");
}

TEST(FreedMemoryTest, CountsTheBlocksThatHoldTheTextAndNotThoseOfEarlierOwners) {
    const std::string secret = "a secret too long for a string object";
    const auto copyAndFree = [&](bool wipe) {
        std::string copy = secret;
        if (wipe) Platform::SecureWipe(copy);
    };
    copyAndFree(false);
    const FreedMemory freed(secret);
    copyAndFree(true);
    { const std::vector<char> sameSize(secret.size() + 1); }
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    copyAndFree(false);
    EXPECT_EQ(freed.BlocksWithTheSecret(), FreedMemory::Watches ? 1u : 0u);
    std::string moved = secret;
    moved = std::string(100, 'x');  // the old block is emptied and freed
    EXPECT_EQ(freed.BlocksWithTheSecret(), FreedMemory::Watches ? 2u : 0u);
}

TEST(TemporaryDirectoryTest, IsGoneAfterwardsWithAllItHeld) {
    std::string path;
    {
        TemporaryDirectory directory;
        path = directory.Path();
        directory.Write("a/b", "x");
        EXPECT_EQ(directory.Read("a/b"), "x");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace Ombry::Tests
