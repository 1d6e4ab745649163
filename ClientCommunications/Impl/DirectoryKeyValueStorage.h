#pragma once

#include "ClientCommunications/IKeyValueStorage.h"
#include "ClientCommunications/Impl/KeyLockTable.h"
#include "Platform/IFiles.h"
#include "Platform/SecureWipe.h"

#include <optional>
#include <string_view>

namespace Ombry::ClientCommunications {

/// An entry as it was read. Immutable. Its text may hold a token: it is wiped with the entry.
struct ReadEntry {
    ~ReadEntry() { Platform::SecureWipe(text); }

    std::string path;  ///< of its file, for the next look
    std::string text;  ///< empty for one that was not there
    /// Of the file that `text` was read from; none if the same state might be that of another text later on.
    std::optional<Platform::FileState> state;
    TimePoint readAt{};
};

/// A folder of crash-safe blobs. A key is any text; its SHA-256 names the entry on the disk. Many readers or
/// one writer at a time for each entry, in this process: whoever uses one folder must share one object.
class DirectoryKeyValueStorage : public IKeyValueStorage {
public:
    explicit DirectoryKeyValueStorage(std::string directory) : directory(std::move(directory)) {}

    /// The name under which the entry of a key lies, for those who ask for it often.
    static std::string EntryNameOf(const std::string& key);
    /// Whether that can be the name of an entry.
    static bool IsEntryName(std::string_view name);

    std::string GetByKey(const std::string& key) override;
    std::string GetEntry(const std::string& entryName) override;
    /// `GetEntry` for those who ask for one entry again and again: `known` is what they got the last time, or
    /// null. It is returned once more, at the cost of a look at the file, if it is sure to be what reading
    /// would give.
    std::shared_ptr<const ReadEntry> Reread(const std::string& entryName,
                                            std::shared_ptr<const ReadEntry> known);
    void SetByKey(const std::string& key, const std::string& value) override;
    void RemoveByKey(const std::string& key) override;
    void RemoveEntry(const std::string& entryName) override;
    /// Takes no lock; empty for a folder that does not exist.
    std::set<std::string> getEntriesNames() override;

private:
    Platform::ValueOr<Platform::FileState> StateOf(const std::string& entryName, const std::string& path);
    std::string PathOf(const std::string& entryName) const;

    const std::string directory;
    KeyLockTable locks;
};

}  // namespace Ombry::ClientCommunications
