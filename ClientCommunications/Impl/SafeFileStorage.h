#pragma once

#include "ClientCommunications/Impl/NamedFileStorage.h"

#include <optional>

namespace Ombry::ClientCommunications {

/// A blob that survives a crash in mid-write: the committed copy is the path with "-p", the staging copy with
/// "-s". Loading finishes a save that was interrupted. Used for caches: a power cut may bring an older blob
/// back or leave none, but never a part of one. Has no lock: between two processes that use one path the blob
/// may be lost, whole.
class SafeFileStorage : public IStorage {
public:
    SafeFileStorage(const std::string& path, bool failIfMissing);

    std::string Load() override;
    void Save(const std::string& data) override;

    /// The committed copy alone, if it is there; changes nothing on the disk.
    std::optional<std::string> LoadCommitted();
    /// Takes both copies away; that one is not there is no failure.
    void Remove();

    /// The file that holds the committed copy of the blob at that path.
    static std::string CommittedPathOf(std::string path);
    /// The file that a save begins with, and that takes the place of a committed copy that is missing.
    static std::string StagedPathOf(const std::string& path);
    /// The name of the blob that a file is a copy of. A file that is neither copy keeps its name.
    static std::string BlobNameOf(const std::string& fileName);

private:
    const bool failIfMissing;
    NamedFileStorage files;
};

}  // namespace Ombry::ClientCommunications
