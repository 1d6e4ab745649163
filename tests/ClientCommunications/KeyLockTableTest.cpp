#include "ClientCommunications/Impl/KeyLockTable.h"
#include "tests/Fakes/ObservedThread.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>

namespace Ombry::Tests {
namespace {

using ClientCommunications::KeyLockTable;
using ClientCommunications::KeyReadLock;
using ClientCommunications::KeyWriteLock;
using testing::ElementsAre;

/// What happened, in order, from several threads.
class Events {
public:
    void Add(const std::string& event) {
        std::lock_guard guard(mutex);
        events.push_back(event);
    }
    std::vector<std::string> All() const {
        std::lock_guard guard(mutex);
        return events;
    }

private:
    mutable std::mutex mutex;
    std::vector<std::string> events;  // guarded by mutex
};

TEST(KeyLockTableTest, ReadersShareAKey) {
    KeyLockTable table;
    const KeyReadLock first(&table, "a");
    const KeyReadLock second(&table, "a");
    EXPECT_EQ(table.Size(), 1u);
}

TEST(KeyLockTableTest, LocksOfDifferentKeysAreIndependent) {
    KeyLockTable table;
    const KeyWriteLock writer(&table, "a");
    const KeyReadLock reader(&table, "b");
    const KeyWriteLock other(&table, "A");
    const KeyReadLock empty(&table, "");
    EXPECT_EQ(table.Size(), 4u);
}

TEST(KeyLockTableTest, HoldsOnlyTheKeysInUse) {
    KeyLockTable table;
    EXPECT_EQ(table.Size(), 0u);
    {
        const KeyReadLock first(&table, "a");
        {
            const KeyReadLock second(&table, "a");
            const KeyWriteLock writer(&table, "b");
            EXPECT_EQ(table.Size(), 2u);
        }
        EXPECT_EQ(table.Size(), 1u);
    }
    EXPECT_EQ(table.Size(), 0u);
}

TEST(KeyLockTableTest, AKeyTakesOverNothingOfTheOneThatWentBefore) {
    KeyLockTable table;
    { const KeyWriteLock writer(&table, "a"); }
    {
        const KeyReadLock first(&table, "b");
        const KeyReadLock second(&table, "b");
        const KeyWriteLock other(&table, "a");
        EXPECT_EQ(table.Size(), 2u);
    }
    const KeyWriteLock writer(&table, "c");
    EXPECT_EQ(table.Size(), 1u);
}

TEST(KeyLockTableTest, AReaderWaitsForTheWriter) {
    KeyLockTable table;
    Events events;
    table.LockWrite("a");
    ObservedThread reader([&] {
        const KeyReadLock lock(&table, "a");
        events.Add("read");
    });
    EXPECT_TRUE(reader.IsBlocked());
    events.Add("unlock");
    table.UnlockWrite("a");
    reader.Join();
    EXPECT_THAT(events.All(), ElementsAre("unlock", "read"));
    EXPECT_EQ(table.Size(), 0u);
}

TEST(KeyLockTableTest, AWriterWaitsForTheWriter) {
    KeyLockTable table;
    Events events;
    table.LockWrite("a");
    ObservedThread writer([&] {
        const KeyWriteLock lock(&table, "a");
        events.Add("write");
    });
    EXPECT_TRUE(writer.IsBlocked());
    events.Add("unlock");
    table.UnlockWrite("a");
    writer.Join();
    EXPECT_THAT(events.All(), ElementsAre("unlock", "write"));
    EXPECT_EQ(table.Size(), 0u);
}

TEST(KeyLockTableTest, AWriterWaitsForTheLastReader) {
    KeyLockTable table;
    Events events;
    table.LockRead("a");
    table.LockRead("a");
    ObservedThread writer([&] {
        const KeyWriteLock lock(&table, "a");
        events.Add("write");
    });
    EXPECT_TRUE(writer.IsBlocked());
    table.UnlockRead("a");
    EXPECT_TRUE(writer.IsBlocked());
    EXPECT_EQ(table.Size(), 1u);
    events.Add("unlock");
    table.UnlockRead("a");
    writer.Join();
    EXPECT_THAT(events.All(), ElementsAre("unlock", "write"));
    EXPECT_EQ(table.Size(), 0u);
}

TEST(KeyLockTableTest, AWaitingWriterGoesBeforeReadersThatComeLater) {
    KeyLockTable table;
    Events events;
    std::atomic<bool> letGo{false};
    table.LockRead("a");
    ObservedThread writer([&] {
        const KeyWriteLock lock(&table, "a");
        events.Add("write begins");
        while (!letGo)
            std::this_thread::yield();
        events.Add("write ends");
    });
    ASSERT_TRUE(writer.IsBlocked());
    ObservedThread reader([&] {
        const KeyReadLock lock(&table, "a");
        events.Add("read");
    });
    EXPECT_TRUE(reader.IsBlocked());
    table.UnlockRead("a");
    while (events.All().empty())
        std::this_thread::yield();
    EXPECT_TRUE(reader.IsBlocked());
    letGo = true;
    writer.Join();
    reader.Join();
    EXPECT_THAT(events.All(), ElementsAre("write begins", "write ends", "read"));
    EXPECT_EQ(table.Size(), 0u);
}

// Without a precedence the writer comes first all the same where it is woken quickly, hence the rounds.
TEST(KeyLockTableTest, AWaitingWriterGoesBeforeTheReaderThatJustLeft) {
    for (int round = 0; round < 100; ++round) {
        KeyLockTable table;
        Events events;
        table.LockRead("a");
        ObservedThread writer([&] {
            const KeyWriteLock lock(&table, "a");
            events.Add("write");
        });
        ASSERT_TRUE(writer.IsBlocked());
        table.UnlockRead("a");
        table.LockRead("a");
        events.Add("read");
        table.UnlockRead("a");
        writer.Join();
        ASSERT_THAT(events.All(), ElementsAre("write", "read")) << round;
    }
}

TEST(KeyLockTableTest, AWaitingWriterHoldsOffReadersOfItsKeyAlone) {
    KeyLockTable table;
    table.LockRead("a");
    ObservedThread writer([&] { const KeyWriteLock lock(&table, "a"); });
    ASSERT_TRUE(writer.IsBlocked());
    { const KeyReadLock other(&table, "b"); }
    table.UnlockRead("a");
    writer.Join();
    EXPECT_EQ(table.Size(), 0u);
}

TEST(KeyLockTableTest, EveryWaiterOfAnEntryThatWentAwayIsServed) {
    KeyLockTable table;
    std::atomic<int> served{0};
    table.LockWrite("a");
    {
        std::vector<std::unique_ptr<ObservedThread>> threads;
        for (int i = 0; i < 6; ++i) {
            threads.push_back(std::make_unique<ObservedThread>([&table, &served, i] {
                if (i % 2 == 0) {
                    const KeyReadLock lock(&table, "a");
                    ++served;
                } else {
                    const KeyWriteLock lock(&table, "a");
                    ++served;
                }
            }));
            EXPECT_TRUE(threads.back()->IsBlocked());
        }
        table.UnlockWrite("a");
    }
    EXPECT_EQ(served, 6);
    EXPECT_EQ(table.Size(), 0u);
}

TEST(KeyLockTableTest, AnUnlockReachesTheWaiterOfItsKeyPastOneOfAnotherThatCameFirst) {
    for (const bool reading : {false, true}) {
        KeyLockTable table;
        std::atomic<bool> ended{false};
        table.LockWrite("held");
        reading ? table.LockRead("a") : table.LockWrite("a");
        ObservedThread other([&] { const KeyReadLock lock(&table, "held"); });
        ASSERT_TRUE(other.IsBlocked());
        ObservedThread writer([&] {
            { const KeyWriteLock lock(&table, "a"); }
            ended = true;
        });
        ASSERT_TRUE(writer.IsBlocked());

        reading ? table.UnlockRead("a") : table.UnlockWrite("a");

        EXPECT_TRUE(EndsUnaided(ended)) << reading;
        table.UnlockWrite("held");
    }
}

TEST(KeyLockTableTest, AnUnlockOfTheWriterLetsAllReadersInAtOnce) {
    KeyLockTable table;
    std::atomic<int> inside{0};
    std::atomic<bool> allInside{false};
    table.LockWrite("a");
    std::vector<std::unique_ptr<ObservedThread>> readers;
    for (int i = 0; i < 3; ++i) {
        readers.push_back(std::make_unique<ObservedThread>([&] {
            const KeyReadLock lock(&table, "a");
            if (++inside == 3) allInside = true;
            EndsUnaided(allInside);
        }));
        ASSERT_TRUE(readers.back()->IsBlocked());
    }
    table.UnlockWrite("a");
    EXPECT_TRUE(EndsUnaided(allInside));
}

TEST(KeyLockTableTest, ManyThreadsNeverSeeAWriterBesideAnybodyElse) {
    KeyLockTable table;
    constexpr int Keys = 3;
    std::array<int, Keys> unguarded{};  // guarded by the keys' locks alone
    std::array<std::atomic<int>, Keys> writers{};
    std::array<std::atomic<int>, Keys> readers{};
    std::atomic<bool> broken{false};
    std::atomic<int> sum{0};
    {
        std::vector<std::unique_ptr<ObservedThread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<ObservedThread>([&, t] {
                for (int i = 0; i < 300; ++i) {
                    const auto key = static_cast<std::size_t>((i + t) % Keys);
                    const std::string name(1, static_cast<char>('a' + static_cast<int>(key)));
                    if ((i * 7 + t) % 3 == 0) {
                        const KeyWriteLock lock(&table, name);
                        if (++writers[key] != 1 || readers[key] != 0) broken = true;
                        ++unguarded[key];
                        --writers[key];
                    } else {
                        const KeyReadLock lock(&table, name);
                        ++readers[key];
                        if (writers[key] != 0) broken = true;
                        sum += unguarded[key];
                        --readers[key];
                    }
                }
            }));
        }
    }
    EXPECT_FALSE(broken);
    EXPECT_EQ(unguarded[0] + unguarded[1] + unguarded[2], 400);
    EXPECT_EQ(table.Size(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
