// The example with all of its state below the current directory.

#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Ombry.SecClientConfig/Here/SeedsHere.h"
#include "examples/long_running_client/LongRunningClient.h"

int main(int argc, char** argv) {
    Ombry::SecClientConfig::FoldersHere folders;
    Ombry::SecClientConfig::SeedsHere seeds;
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IKnownFolders> foldersReplaced(folders);
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IRandom> seedsReplaced(seeds);
    return Example::RunLongRunningClient(argc, argv);
}
