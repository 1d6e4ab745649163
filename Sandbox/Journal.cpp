#include "Sandbox/Journal.h"

#include "Platform/IClock.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Ombry::Sandbox {

void Journal::Add(JournalEntry entry) {
    std::lock_guard guard(mutex);
    entry.number = ++last;
    if (entries.size() == Capacity) entries.pop_front();
    entries.push_back(std::move(entry));
    condition.notify_all();
}

std::vector<JournalEntry> Journal::After(std::uint64_t number) const {
    std::lock_guard guard(mutex);
    std::vector<JournalEntry> found;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
                 [&](const JournalEntry& entry) { return entry.number > number; });
    return found;
}

bool Journal::AwaitAfter(std::uint64_t number, Duration atMost) {
    std::unique_lock lock(mutex);
    Platform::WaitFor(condition, lock, atMost, [&] { return closed || last > number; });
    return !closed && last > number;
}

void Journal::Close() {
    std::lock_guard guard(mutex);
    closed = true;
    condition.notify_all();
}

bool Journal::IsClosed() const {
    std::lock_guard guard(mutex);
    return closed;
}

}  // namespace Ombry::Sandbox
