#include "ClientCommunications/Impl/FileStorage.h"

#include "ClientCommunications/Impl/RuntimeTexts.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

void CreateParentDirectories(const std::string& path, Platform::Durability durability) {
    const std::size_t separator = path.find_last_of("/\\");
    if (separator == std::string::npos || separator == 0) return;
    const std::string parent = path.substr(0, separator);
    const Platform::Result result = Platform::Files().CreateDirectories(parent, durability);
    if (!result) ThrowCreateDirectoriesFailed(parent, result.Error());
}

}  // namespace

FileStorage::FileStorage(std::string path, bool failIfMissing, std::shared_ptr<IPostSaveHook> postSaveHook,
                         Platform::Durability durability)
    : path(std::move(path)),
      failIfMissing(failIfMissing),
      postSaveHook(std::move(postSaveHook)),
      durability(durability) {}

std::string FileStorage::Load() {
    Platform::ValueOr<std::string> data = Platform::Files().Read(path);
    if (data) return std::move(*data);
    if (!failIfMissing) return std::string();
    throw std::runtime_error("Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + path +
                             "' for read.");
}

void FileStorage::Save(const std::string& data) {
    CreateParentDirectories(path, durability);
    auto replacement = Platform::Files().BeginReplace(path, data.size(), durability);
    // What fails once the file is open, and its space reserved, goes unreported: callers rely on `Save`
    // returning then. A file that may not be replaced would not have opened.
    const bool written = replacement && ((*replacement)->Complete(data) || !(*replacement)->IsRefused());
    if (!written) {
        throw std::runtime_error("Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" +
                                 path + "' for write.");
    }
    if (postSaveHook) postSaveHook->OnSaved(path);
}

}  // namespace Ombry::ClientCommunications
