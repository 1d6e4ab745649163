#include "Platform/Linux/MachineKey.h"

#include "Platform/IFiles.h"
#include "Platform/IKnownFolders.h"
#include "Platform/IProtection.h"
#include "Platform/IRandom.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/ProgramData.h"

namespace Ombry::Platform::Linux {
namespace {

constexpr std::size_t KeySize = 32;

ValueOr<std::string> KeyFolder(KeyScope scope) {
    auto folder = scope == KeyScope::Machine ? ProgramDataFolder() : KnownFolders().CurrentUserQuennet();
    if (folder) *folder += "/Keys";
    return folder;
}

ValueOr<std::string> ReadKey(const std::string& path) {
    auto key = Production<IFiles>().Read(path);
    if (key && key->size() != KeySize) {
        SecureWipe(*key);
        return Result::Failure(EBADMSG);
    }
    return key;
}

/// Makes the key file complete and on the disk, or not at all. Whoever comes second finds it there.
Result MakeKey(const std::string& folder, const std::string& path) {
    if (const Result result = Production<IFiles>().CreateDirectories(folder); !result) return result;
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

ValueOr<std::string> LoadKey(KeyScope scope) {
    auto folder = KeyFolder(scope);
    if (!folder) return folder;
    return ReadKey(*folder + "/protection.key");
}

ValueOr<std::string> LoadOrMakeKey(KeyScope scope) {
    auto folder = KeyFolder(scope);
    if (!folder) return folder;
    const std::string path = *folder + "/protection.key";
    auto key = ReadKey(path);
    if (key || key.Error() != ENOENT) return key;
    if (const Result result = MakeKey(*folder, path); !result) return result;
    return ReadKey(path);
}

}  // namespace Ombry::Platform::Linux
