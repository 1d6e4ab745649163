// The tool with its state here, whose process ends ahead of the n-th change of a file that the command itself
// makes, counted from 1; what its background threads do is not counted:
//
//     tool NUMBER ARGUMENTS...

#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Ombry.SecClientConfig/Here/SeedsHere.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "tests/Fakes/FaultyFiles.h"

#include <cstdlib>
#include <string>
#include <thread>

namespace Ombry::Tests {
namespace {

/// What a shell shows of a process that was killed.
constexpr int KilledExitCode = 137;

bool IsChange(const FileOperation& operation) {
    return operation.name != "Read" && operation.name != "State" && operation.name != "List";
}

int Run(int number, int argc, char** argv) {
    const std::thread::id command = std::this_thread::get_id();
    int changes = 0;
    FaultyFiles files;
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (std::this_thread::get_id() != command || !IsChange(operation)) return std::nullopt;
        if (++changes == number) std::_Exit(KilledExitCode);
        return std::nullopt;
    });
    SecClientConfig::FoldersHere folders;
    SecClientConfig::SeedsHere seeds;
    const Platform::Testing::Replace<Platform::IKnownFolders> foldersReplaced(folders);
    const Platform::Testing::Replace<Platform::IRandom> seedsReplaced(seeds);
    const Platform::Testing::Replace<Platform::IFiles> filesReplaced(files);
    return SecClientConfig::RunTool(argc, argv);
}

}  // namespace
}  // namespace Ombry::Tests

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const int number = std::stoi(argv[1]);
    argv[1] = argv[0];
    return Ombry::Tests::Run(number, argc - 1, argv + 1);
}
