// The protection that outlives the process, with the key file and the machine id of this system.

#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"
#include "tests/Fakes/FailureOf.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace Ombry::Tests {
namespace {

using ClientCommunications::WindowsPersistableDataProtection;

class WindowsPersistableDataProtectionOnThisSystemTest : public testing::Test {
protected:
    const TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machineId{"0123456789abcdef0123456789abcdef"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedId{machineId};
};

TEST_F(WindowsPersistableDataProtectionOnThisSystemTest,
       KeyThatOthersMayReadIsRefusedAndTheTextSaysWhatToDo) {
    WindowsPersistableDataProtection protection("entropy", false);
    std::string data = "data";
    protection.Protect(data);
    std::filesystem::permissions(directory / "Quennet/Keys/protection.key",
                                 std::filesystem::perms::group_read, std::filesystem::perm_options::add);
    const std::string remedy =
        " failed with error 129. Keys/protection.key must belong to root or to the user who runs this, and "
        "be "
        "closed to all others (mode 0600). If others may have read it, enrol the clients anew with a new "
        "key.";
    EXPECT_EQ(FailureOf([&] { protection.Protect(data); }), "CryptProtectData" + remedy);
    EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }), "CryptUnprotectData" + remedy);
}

TEST_F(WindowsPersistableDataProtectionOnThisSystemTest, OtherEntropyOrATamperedBlobFails) {
    std::string data = "text";
    WindowsPersistableDataProtection("entropy", false).Protect(data);

    std::string other = data;
    EXPECT_EQ(FailureOf([&] {
                  WindowsPersistableDataProtection("Entropy", false).Unprotect(other);
              }).find("CryptUnprotectData failed with error "),
              0u);
    EXPECT_EQ(other, data);
    for (std::size_t i = 0; i < data.size(); ++i) {
        std::string tampered = data;
        tampered[i] = static_cast<char>(tampered[i] ^ 1);
        EXPECT_NE(FailureOf([&] { WindowsPersistableDataProtection("entropy", false).Unprotect(tampered); }),
                  "no failure")
            << i;
        std::string shortened = data.substr(0, i);
        if (i > 0) {
            EXPECT_NE(
                FailureOf([&] { WindowsPersistableDataProtection("entropy", false).Unprotect(shortened); }),
                "no failure")
                << i;
        }
    }
}

TEST_F(WindowsPersistableDataProtectionOnThisSystemTest, AnotherMachineCannotReadTheBlob) {
    std::string data = "text";
    WindowsPersistableDataProtection("entropy", false).Protect(data);
    const std::string blob = data;

    machineId.id = "fedcba9876543210fedcba9876543210";
    EXPECT_NE(FailureOf([&] { WindowsPersistableDataProtection("entropy", false).Unprotect(data); }),
              "no failure");

    machineId.id = "0123456789abcdef0123456789abcdef";
    const TemporaryDirectory elsewhere;
    FakeKnownFolders otherFolders(elsewhere.Path());
    const Platform::Testing::Replace<Platform::IKnownFolders> replaced(otherFolders);
    data = blob;
    EXPECT_NE(FailureOf([&] { WindowsPersistableDataProtection("entropy", false).Unprotect(data); }),
              "no failure");
}

}  // namespace
}  // namespace Ombry::Tests
