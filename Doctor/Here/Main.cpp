// The doctor of the tool's twin, whose state lies below the current directory.

#include "Doctor/RunDoctor.h"
#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Platform/Process.h"

#include <iostream>

int main(int argc, char** argv) {
    Ombry::Platform::HardenProcess();
    Ombry::Platform::TakeArguments(argc, argv);
    Ombry::SecClientConfig::FoldersHere folders;
    const Ombry::Platform::Replace<Ombry::Platform::IKnownFolders> foldersReplaced(folders);
    return Ombry::Doctor::RunDoctor(argc, argv, std::cout, std::cerr);
}
