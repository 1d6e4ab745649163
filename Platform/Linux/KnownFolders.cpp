#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"
#include "Platform/MadeOnce.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace Ombry::Platform {
namespace {

class LinuxKnownFolders : public IKnownFolders {
public:
    ValueOr<std::wstring> ProgramDataQuennet() override {
        constexpr std::string_view folder = OMBRY_PROGRAM_DATA_DIR "/Quennet";
        std::wstring wide(folder.size(), L'\0');  // never more units than bytes
        ITextConversion& conversion = Production<ITextConversion>();
        const auto converted = conversion.Utf8ToWide(folder, wide.data(), wide.size());
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
        return std::string(found->pw_dir) + "/.local/share/Quennet";
    }
};

}  // namespace

template <>
IKnownFolders& Production<IKnownFolders>() {
    return MadeOnce<LinuxKnownFolders>();
}

}  // namespace Ombry::Platform
