// The tool with all of its state below the current directory, so that tests and demonstrations run beside
// each other and beside an installed machine. Never shipped.

#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/IKnownFolders.h"
#include "Platform/Process.h"

namespace {

class FoldersHere : public Ombry::Platform::IKnownFolders {
public:
    Ombry::Platform::ValueOr<std::wstring> ProgramDataQuennet() override {
        return std::wstring(L"./Quennet");
    }
    Ombry::Platform::ValueOr<std::string> CurrentUserQuennet() override {
        return std::string("./User/Quennet");
    }
};

}  // namespace

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    FoldersHere folders;
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IKnownFolders> replaced(folders);
    return Ombry::SecClientConfig::RunTool(argc, argv);
}
