#pragma once

#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// Where a machine stands whose files are in memory: a folder of this process, since its key, which is read
/// past the files, is not.
inline const std::string& MemoryMachine() {
    static const TemporaryDirectory directory;
    return directory.Path();
}

/// Known folders at places of the test's choice: "Quennet" and "UserQuennet" of one folder. It lies below the
/// folder for temporary files, or below a file, where nothing can be: a test leaves no trace.
class FakeKnownFolders : public Platform::IKnownFolders {
public:
    explicit FakeKnownFolders(const std::string& folder)
        : programData(folder + "/Quennet"), currentUser(folder + "/UserQuennet") {
        const std::string temporary = std::filesystem::temp_directory_path().generic_string();
        if (!folder.starts_with(temporary) && !folder.starts_with("/dev/null/"))
            throw std::logic_error("A test that wants " + folder + " may write there.");
    }

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
