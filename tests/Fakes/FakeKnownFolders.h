#pragma once

#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"

#include <string>

namespace Ombry::Tests {

/// Known folders at places of the test's choice: "Quennet" and "UserQuennet" of one folder.
class FakeKnownFolders : public Platform::IKnownFolders {
public:
    explicit FakeKnownFolders(const std::string& folder)
        : programData(folder + "/Quennet"), currentUser(folder + "/UserQuennet") {}

    Platform::ValueOr<std::wstring> ProgramDataQuennet() override {
        if (programDataError != 0) return Platform::Result::Failure(programDataError);
        std::wstring wide(programData.size(), L'\0');
        const auto converted = Platform::Production<Platform::ITextConversion>().Utf8ToWide(
            programData, wide.data(), wide.size());
        wide.resize(static_cast<std::size_t>(converted.count));
        return wide;
    }

    Platform::ValueOr<std::string> CurrentUserQuennet() override {
        if (currentUserError != 0) return Platform::Result::Failure(currentUserError);
        return currentUser;
    }

    const std::string programData;
    const std::string currentUser;
    int programDataError = 0;  ///< what `ProgramDataQuennet` fails with, unless it is 0
    int currentUserError = 0;  ///< what `CurrentUserQuennet` fails with, unless it is 0
};

}  // namespace Ombry::Tests
