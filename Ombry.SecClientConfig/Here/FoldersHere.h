#pragma once

#include "Platform/IKnownFolders.h"

#include <string>

namespace Ombry::SecClientConfig {

/// All state below the current directory, so that tests and demonstrations run beside each other and beside
/// an installed machine. Never shipped.
class FoldersHere : public Platform::IKnownFolders {
public:
    Platform::ValueOr<std::wstring> ProgramDataQuennet() override { return std::wstring(L"./Quennet"); }
    Platform::ValueOr<std::string> CurrentUserQuennet() override { return std::string("./User/Quennet"); }
};

}  // namespace Ombry::SecClientConfig
