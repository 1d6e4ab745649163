// The tool with all of its state below the current directory.

#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/Process.h"

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    Ombry::SecClientConfig::FoldersHere folders;
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IKnownFolders> replaced(folders);
    return Ombry::SecClientConfig::RunTool(argc, argv);
}
