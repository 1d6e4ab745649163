// Who can read the file of a client's credentials, and where.

#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

class ClientCredentialsOnDiskTest : public testing::Test {
protected:
    static std::shared_ptr<IClientCredentials> Credentials() {
        return std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(),
                                                   "my client", "the-id", "the-secret");
    }
    static bool CanLoad(const std::string& folder) {
        try {
            return CreateClientCredentialsStore(folder, true, nullptr)
                       ->Load("my client")
                       ->GetClientSecret() == "the-secret";
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(std::string(failure.what()).find("CryptUnprotectData failed with error "), 0u)
                << failure.what();
            return false;
        }
    }

    const TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machineId{"0123456789abcdef0123456789abcdef"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedId{machineId};
};

TEST_F(ClientCredentialsOnDiskTest, OnlyTheOwnerReadsTheFile) {
    CreateClientCredentialsStore(directory / "s", true, nullptr)->Save(Credentials());

    struct stat status {};
    ASSERT_EQ(stat((directory / "s/Components/my client/ombrycomponent.config").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    ASSERT_EQ(stat((directory / "s/Components/my client").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(ClientCredentialsOnDiskTest, AFileCopiedToAnotherMachineCannotBeLoadedThere) {
    CreateClientCredentialsStore(directory / "s", true, nullptr)->Save(Credentials());
    const TemporaryDirectory elsewhere;
    std::filesystem::copy(directory / "s", elsewhere / "s", std::filesystem::copy_options::recursive);
    {
        // The same key file, as a cloned disk has it, under another machine id.
        machineId.id = "fedcba9876543210fedcba9876543210";
        EXPECT_FALSE(CanLoad(elsewhere / "s"));
        machineId.id = "0123456789abcdef0123456789abcdef";
    }
    {
        // The same machine id, as containers have it, without the key file.
        FakeKnownFolders otherFolders(elsewhere.Path());
        const Platform::Testing::Replace<Platform::IKnownFolders> replaced(otherFolders);
        EXPECT_FALSE(CanLoad(elsewhere / "s"));
    }
    EXPECT_TRUE(CanLoad(elsewhere / "s"));
}

}  // namespace
}  // namespace Ombry::Tests
