#pragma once

#include "ClientCommunications/IPostSaveHook.h"
#include "ClientCommunications/IStorage.h"
#include "Platform/IFiles.h"

namespace Ombry::ClientCommunications {

/// A blob in one file, byte for byte. Saving replaces the file in one step: it is the old one or the new one,
/// never a part. Holds no open file; has no lock.
class FileStorage : public IStorage {
public:
    /// `failIfMissing`: whether loading a file that cannot be opened throws instead of giving an empty text.
    /// `postSaveHook` may be null.
    FileStorage(std::string path, bool failIfMissing, std::shared_ptr<IPostSaveHook> postSaveHook = nullptr,
                Platform::Durability durability = Platform::Durability::Synced);

    std::string Load() override;
    /// Makes missing folders. A file that does not open for writing throws, a full disk included, and so does
    /// one that may not be replaced. Any other failure after that is not reported: it leaves the old file,
    /// or, if only the folder could not be synced, the new one, which a power cut may then undo.
    void Save(const std::string& data) override;

private:
    const std::string path;
    const bool failIfMissing;
    const std::shared_ptr<IPostSaveHook> postSaveHook;
    const Platform::Durability durability;
};

}  // namespace Ombry::ClientCommunications
