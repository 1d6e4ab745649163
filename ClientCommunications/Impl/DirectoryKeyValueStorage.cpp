#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"

#include "ClientCommunications/Impl/KeyHash.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "Platform/IClock.h"
#include "Platform/TemporaryName.h"

#include <algorithm>

namespace Ombry::ClientCommunications {
namespace {

// A file that changed longer ago than this differs in its state from all that come after it. The clocks of
// file systems move in steps, of two seconds where they are coarsest.
constexpr Duration LongestClockStep = std::chrono::seconds(3);

// Whether no change from `now` on can leave a file in that state.
bool IsSettled(const Platform::FileState& state, TimePoint now) {
    return SaturatingAdd(state.changed, LongestClockStep) < now;
}

}  // namespace

std::string DirectoryKeyValueStorage::EntryNameOf(const std::string& key) {
    std::string name = getSHA256HashBase64Encoded(key);
    std::replace(name.begin(), name.end(), '/', '!');  // makes it a legal file name
    return name;
}

// 32 bytes in Base64.
bool DirectoryKeyValueStorage::IsEntryName(std::string_view name) {
    constexpr std::size_t letters = 43;
    const auto isLetter = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '+' ||
               c == '!';
    };
    return name.size() == letters + 1 && name.back() == '=' &&
           std::all_of(name.begin(), name.end() - 1, isLetter);
}

std::string DirectoryKeyValueStorage::GetByKey(const std::string& key) {
    return GetEntry(EntryNameOf(key));
}

std::string DirectoryKeyValueStorage::GetEntry(const std::string& entryName) {
    SafeFileStorage storage(PathOf(entryName), false);
    {
        const KeyReadLock lock(&locks, entryName);
        if (std::optional<std::string> committed = storage.LoadCommitted()) return std::move(*committed);
    }
    // The committed copy is missing: recovery may rename files, which is a writer's work.
    const KeyWriteLock lock(&locks, entryName);
    return storage.Load();
}

// Time and state are taken before the text, so that a change in between shows at the next look. After the
// clock was set back a change may get the time that an earlier one had: what was read later than now is not
// relied on.
std::shared_ptr<const ReadEntry> DirectoryKeyValueStorage::Reread(const std::string& entryName,
                                                                  std::shared_ptr<const ReadEntry> known) {
    const TimePoint now = Platform::Clock().Now();
    std::string path;
    if (!known) path = SafeFileStorage::CommittedPathOf(PathOf(entryName));
    const Platform::ValueOr<Platform::FileState> state = StateOf(entryName, known ? known->path : path);
    if (state && known && known->state == *state && known->readAt <= now) return known;
    auto entry = std::make_shared<ReadEntry>();
    entry->path = known ? known->path : path;
    entry->text = GetEntry(entryName);
    if (state && IsSettled(*state, now)) entry->state = *state;
    entry->readAt = now;
    return entry;
}

Platform::ValueOr<Platform::FileState> DirectoryKeyValueStorage::StateOf(const std::string& entryName,
                                                                         const std::string& path) {
    const KeyReadLock lock(&locks, entryName);
    return Platform::Files().State(path);
}

std::string DirectoryKeyValueStorage::PathOf(const std::string& entryName) const {
    return directory + "/" + entryName;
}

void DirectoryKeyValueStorage::SetByKey(const std::string& key, const std::string& value) {
    const std::string entryName = EntryNameOf(key);
    const KeyWriteLock lock(&locks, entryName);
    SafeFileStorage(PathOf(entryName), false).Save(value);
}

void DirectoryKeyValueStorage::RemoveByKey(const std::string& key) {
    RemoveEntry(EntryNameOf(key));
}

void DirectoryKeyValueStorage::RemoveEntry(const std::string& entryName) {
    const KeyWriteLock lock(&locks, entryName);
    SafeFileStorage(PathOf(entryName), false).Remove();
}

std::set<std::string> DirectoryKeyValueStorage::getEntriesNames() {
    std::set<std::string> names;
    const auto files = Platform::Files().List(directory);
    if (!files) return names;
    for (const std::string& file : *files) {
        if (Platform::IsTemporaryName<char>(file)) continue;
        names.insert(SafeFileStorage::BlobNameOf(file));
    }
    return names;
}

}  // namespace Ombry::ClientCommunications
