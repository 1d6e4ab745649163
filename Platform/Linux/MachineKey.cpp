#include "Platform/Linux/MachineKey.h"

#include "Platform/IFiles.h"
#include "Platform/IKnownFolders.h"
#include "Platform/IRandom.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/ProgramData.h"
#include "Platform/Linux/TemporaryFile.h"
#include "Platform/SecureWipe.h"

#include <sys/stat.h>

namespace Ombry::Platform::Linux {
namespace {

constexpr std::size_t KeySize = 32;

ValueOr<std::string> KeyFolder(KeyScope scope) {
    auto folder = scope == KeyScope::Machine ? ProgramDataFolder() : KnownFolders().CurrentUserQuennet();
    if (folder) *folder += KeyFolderName;
    return folder;
}

std::string KeyPath(const std::string& folder) {
    return folder + KeyFileName;
}

// Whether nobody but root and the user who runs this can have read or written the file.
bool IsPrivate(const struct stat& status) {
    return (status.st_uid == 0 || status.st_uid == geteuid()) && (status.st_mode & 077) == 0;
}

ValueOr<std::string> ReadKey(const std::string& path) {
    // Judged by what was opened: a look at the path could be a look at another file.
    const Descriptor file(
        Retry([&] { return open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    if (!file) return Result::Failure(errno);
    struct stat status {};
    if (fstat(file.Number(), &status) != 0) return Result::Failure(errno);
    if (!S_ISREG(status.st_mode)) return Result::Failure(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    if (!IsPrivate(status)) return Result::Failure(KeyIsNotPrivate);
    if (status.st_size != static_cast<off_t>(KeySize)) return Result::Failure(EBADMSG);
    auto key = ReadToEnd(file.Number(), KeySize);
    if (key && key->size() != KeySize) {
        SecureWipe(*key);
        return Result::Failure(EBADMSG);
    }
    return key;
}

// Makes the key file complete and on the disk, or not at all. Whoever comes second finds it there.
Result MakeKey(const std::string& folder, const std::string& path) {
    const Result made = Production<IFiles>().CreateDirectories(folder, Durability::Synced);
    if (!made) return made;
    auto temporary = TemporaryFile::CreateBeside(path);
    if (!temporary) return Result::Failure(temporary.Error());
    std::string key(KeySize, '\0');
    Result result = Random().Bytes({reinterpret_cast<std::uint8_t*>(key.data()), key.size()});
    if (result) result = WriteAll(temporary->Number(), key);
    SecureWipe(key);
    if (result) result = Sync(temporary->Number());
    if (result) result = temporary->Close();
    if (!result) return result;
    result = temporary->LinkTo(path);
    if (!result) return result.Error() == EEXIST ? Result::Success() : result;
    const Descriptor parent(Retry([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    return parent ? Sync(parent.Number()) : Result::Failure(errno);
}

}  // namespace

ValueOr<std::string> KeyFile(KeyScope scope) {
    auto folder = KeyFolder(scope);
    if (!folder) return folder;
    return KeyPath(*folder);
}

ValueOr<std::string> LoadKey(KeyScope scope) {
    const auto path = KeyFile(scope);
    return path ? ReadKey(*path) : path;
}

ValueOr<std::string> LoadOrMakeKey(KeyScope scope) {
    auto folder = KeyFolder(scope);
    if (!folder) return folder;
    const std::string path = KeyPath(*folder);
    // Here and not where a key is made alone: a process that was killed right behind that has left the key a
    // second name.
    RemoveLeftoversOnce(*folder);
    auto key = ReadKey(path);
    if (key || key.Error() != ENOENT) return key;
    if (const Result result = MakeKey(*folder, path); !result) return result;
    return ReadKey(path);
}

}  // namespace Ombry::Platform::Linux
