#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace Ombry::ClientCommunications {

/// A reader-writer lock for each key in use, writers preferred. Keys not in use take no room, but for that of
/// one entry, which the next key takes over: most callers lock one key again and again.
class KeyLockTable {
public:
    void LockRead(const std::string& name);
    void UnlockRead(const std::string& name);
    void LockWrite(const std::string& name);
    void UnlockWrite(const std::string& name);

    /// Keys in use now.
    std::size_t Size() const;

private:
    enum class WriterState { None = 0, Holding = 1, Waiting = 2 };
    struct KeyLockState {
        WriterState writerState = WriterState::None;
        int readerCount = 0;
    };

    KeyLockState& StateOf(const std::string& name);

    mutable std::mutex mutex;
    std::condition_variable condition;
    // Guarded by mutex. An entry goes away while others wait for it: it is looked up anew after each wait.
    std::map<std::string, KeyLockState> states;
    std::map<std::string, KeyLockState>::node_type spare;  // the memory of the last entry that went
};

class KeyReadLock {
public:
    KeyReadLock(KeyLockTable* table, std::string name) : table(table), name(std::move(name)) {
        table->LockRead(this->name);
    }
    ~KeyReadLock() { table->UnlockRead(name); }
    KeyReadLock(const KeyReadLock&) = delete;
    KeyReadLock& operator=(const KeyReadLock&) = delete;

private:
    KeyLockTable* table;
    std::string name;
};

class KeyWriteLock {
public:
    KeyWriteLock(KeyLockTable* table, std::string name) : table(table), name(std::move(name)) {
        table->LockWrite(this->name);
    }
    ~KeyWriteLock() { table->UnlockWrite(name); }
    KeyWriteLock(const KeyWriteLock&) = delete;
    KeyWriteLock& operator=(const KeyWriteLock&) = delete;

private:
    KeyLockTable* table;
    std::string name;
};

}  // namespace Ombry::ClientCommunications
