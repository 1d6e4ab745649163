// Names that no file of this system can have reach a storage through the names of clients and services.

#include "ClientCommunications/Impl/FileStorage.h"
#include "tests/Fakes/FailureOf.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using ClientCommunications::FileStorage;

class FileStorageNamesTest : public testing::Test {
protected:
    TemporaryDirectory directory;
};

TEST_F(FileStorageNamesTest, NameThatStandsForSomethingElseIsAFileThatDoesNotOpen) {
    directory.Write("file", "precious");
    for (const std::string name : {"CON.config", "nul", "file.", "file ", "file:stream"}) {
        const std::string path = directory / name;
        FileStorage storage(path, true, nullptr);
        EXPECT_EQ(
            FailureOf([&] { storage.Save("x"); }),
            "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" + path + "' for write.");
        EXPECT_EQ(
            FailureOf([&] { storage.Load(); }),
            "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + path + "' for read.");
        EXPECT_EQ(FileStorage(path, false, nullptr).Load(), "");
    }
    EXPECT_EQ(directory.Read("file"), "precious");
}

TEST_F(FileStorageNamesTest, FolderOfSuchANameCannotBeMade) {
    for (const std::string name : {"CON", "folder.", "folder "}) {
        const std::string folder = directory / name;
        FileStorage storage(folder + "/file", true, nullptr);
        EXPECT_THAT(FailureOf([&] { storage.Save("x"); }),
                    testing::AllOf(testing::StartsWith("create_directories: "),
                                   testing::EndsWith(": \"" + folder + "\"")));
        EXPECT_EQ(FailureOf([&] { storage.Load(); }),
                  "Ombry::ClientCommunications::FileStorage::Load: Failed to "
                  "open file '" +
                      folder + "/file' for read.");
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

}  // namespace
}  // namespace Ombry::Tests
