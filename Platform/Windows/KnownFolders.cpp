#include "Platform/IKnownFolders.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"
#include "Platform/Windows/Utf8.h"

#include <shlobj.h>

namespace Ombry::Platform {
namespace {

// The "Quennet" folder below one of the system's; a failure carries what the call returned.
ValueOr<std::wstring> QuennetBelow(int folder) {
    wchar_t path[MAX_PATH] = {};
    const HRESULT result = SHGetFolderPathW(nullptr, folder, nullptr, SHGFP_TYPE_CURRENT, path);
    if (result != S_OK) return Result::Failure(static_cast<int>(result));
    return std::wstring(path) + L"\\Quennet";
}

class WindowsKnownFolders : public IKnownFolders {
public:
    ValueOr<std::wstring> ProgramDataQuennet() override { return QuennetBelow(CSIDL_COMMON_APPDATA); }

    ValueOr<std::string> CurrentUserQuennet() override {
        const auto folder = QuennetBelow(CSIDL_LOCAL_APPDATA);
        if (!folder) return Result::Failure(folder.Error());
        return Windows::Utf8(*folder);
    }
};

}  // namespace

template <>
IKnownFolders& Production<IKnownFolders>() {
    return MadeOnce<WindowsKnownFolders>();
}

}  // namespace Ombry::Platform
