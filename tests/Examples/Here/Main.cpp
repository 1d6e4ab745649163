// The example with all of its state below the current directory.

#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "examples/long_running_client/LongRunningClient.h"

int main(int argc, char** argv) {
    Ombry::SecClientConfig::FoldersHere folders;
    const Ombry::Platform::Testing::Replace<Ombry::Platform::IKnownFolders> replaced(folders);
    return Example::RunLongRunningClient(argc, argv);
}
