#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"
#include "Platform/MadeOnce.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

namespace Ombry::Platform {
namespace {

constexpr std::string_view MachineFolder = OMBRY_PROGRAM_DATA_DIR "/Quennet";
// "/Quennet" itself, which stands behind the user's own folder as well.
constexpr std::string_view Quennet = MachineFolder.substr(sizeof OMBRY_PROGRAM_DATA_DIR - 1);

class LinuxKnownFolders : public IKnownFolders {
public:
    ValueOr<std::wstring> ProgramDataQuennet() override {
        std::wstring wide(MachineFolder.size(), L'\0');  // never more units than bytes
        ITextConversion& conversion = Production<ITextConversion>();
        const auto converted = conversion.Utf8ToWide(MachineFolder, wide.data(), wide.size());
        if (converted.count < 1) return Result::Failure(converted.error);
        wide.resize(static_cast<std::size_t>(converted.count));
        return wide;
    }

    ValueOr<std::string> CurrentUserQuennet() override {
        passwd entry{};
        passwd* found = nullptr;
        std::vector<char> room(1024);
        for (;;) {
            const int error = getpwuid_r(geteuid(), &entry, room.data(), room.size(), &found);
            if (error == 0) break;
            if (error == ERANGE) {
                room.resize(room.size() * 2);
            } else if (error != EINTR) {
                return Result::Failure(error);
            }
        }
        // A home that depends on the working directory is none.
        if (!found || !found->pw_dir || found->pw_dir[0] != '/') return Result::Failure(ENOENT);
        return (std::string(found->pw_dir) + "/.local/share").append(Quennet);
    }
};

}  // namespace

template <>
IKnownFolders& Production<IKnownFolders>() {
    return MadeOnce<LinuxKnownFolders>();
}

}  // namespace Ombry::Platform
