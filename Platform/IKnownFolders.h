#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <string>

namespace Ombry::Platform {

/// Where the system keeps data of programs.
class IKnownFolders {
public:
    virtual ~IKnownFolders() = default;

    /// The "Quennet" folder under the common program-data directory, with the system's own separator in front
    /// of that name; UTF-16 units, as `ITextConversion` takes them.
    virtual ValueOr<std::wstring> ProgramDataQuennet() = 0;

    /// The same for data of the current user alone, whatever the environment says. UTF-8.
    virtual ValueOr<std::string> CurrentUserQuennet() = 0;
};

template <>
IKnownFolders& Production<IKnownFolders>();

inline IKnownFolders& KnownFolders() {
    return Current<IKnownFolders>();
}

}  // namespace Ombry::Platform
