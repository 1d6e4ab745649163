#pragma once

#include "Platform/Time.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace Ombry::Sandbox {

/// A request that was answered, or was not.
struct JournalEntry {
    std::uint64_t number = 0;  ///< from 1 on, without a gap; given by the journal
    std::int64_t time = 0;     ///< when it ended, in seconds since 1970
    std::string method;
    std::string path;
    int status = 0;
    Duration duration{};
    std::string fault;  ///< of those that were asked for; empty if there was none
};

/// The last requests. Any thread may call it.
class Journal {
public:
    static constexpr std::size_t Capacity = 100;

    void Add(JournalEntry entry);

    /// Those behind a number, the oldest first, as far as they are kept.
    std::vector<JournalEntry> After(std::uint64_t number) const;

    /// Waits until there are entries behind a number, for no longer than this. False at once when it is
    /// closed.
    bool AwaitAfter(std::uint64_t number, Duration atMost);

    /// Ends all waits, those to come as well.
    void Close();
    bool IsClosed() const;

private:
    mutable std::mutex mutex;
    std::condition_variable condition;
    // Guarded by mutex:
    std::deque<JournalEntry> entries;
    std::uint64_t last = 0;
    bool closed = false;
};

}  // namespace Ombry::Sandbox
