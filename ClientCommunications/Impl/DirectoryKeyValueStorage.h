#pragma once

#include "ClientCommunications/IStorage.h"
#include "ClientCommunications/Impl/KeyLockTable.h"

namespace Ombry::ClientCommunications {

/// A folder of crash-safe blobs. A key is any text; its SHA-256 names the entry on the disk. Many readers or
/// one writer at a time for each entry, in this process: whoever uses one folder must share one object.
class DirectoryKeyValueStorage : public IKeyValueStorage {
public:
    explicit DirectoryKeyValueStorage(std::string directory) : directory(std::move(directory)) {}

    /// The name under which the entry of a key lies, for those who ask for it often.
    static std::string EntryNameOf(const std::string& key);

    std::string GetByKey(const std::string& key) override;
    std::string GetEntry(const std::string& entryName) override;
    void SetByKey(const std::string& key, const std::string& value) override;
    void RemoveByKey(const std::string& key) override;
    void RemoveEntry(const std::string& entryName) override;
    /// Takes no lock; empty for a folder that does not exist.
    std::set<std::string> getEntriesNames() override;

private:
    std::string PathOf(const std::string& entryName) const { return directory + "/" + entryName; }

    const std::string directory;
    KeyLockTable locks;
};

}  // namespace Ombry::ClientCommunications
