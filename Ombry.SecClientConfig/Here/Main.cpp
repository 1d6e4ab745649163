// The tool with all of its state below the current directory.

#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Ombry.SecClientConfig/Here/SeedsHere.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/Process.h"

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    Ombry::Platform::TakeArguments(argc, argv);
    Ombry::SecClientConfig::FoldersHere folders;
    Ombry::SecClientConfig::SeedsHere seeds;
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IKnownFolders> foldersReplaced(folders);
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IRandom> seedsReplaced(seeds);
    return Ombry::SecClientConfig::RunTool(argc, argv);
}
