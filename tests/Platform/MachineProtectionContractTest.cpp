#include "Platform/IMachineProtection.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <string>

namespace Ombry::Tests {
namespace {

using Platform::IMachineProtection;

constexpr std::uint32_t ForMachine =
    IMachineProtection::UserInterfaceForbidden | IMachineProtection::LocalMachine;
constexpr std::uint32_t ForUser = IMachineProtection::UserInterfaceForbidden;

class MachineProtectionContractTest : public testing::Test {
protected:
    std::string Protect(const std::string& plain, const std::string& entropy = "entropy",
                        std::uint32_t flags = ForMachine) {
        const auto blob = protection.Protect(plain, entropy, flags);
        EXPECT_TRUE(blob) << blob.Error();
        return blob && *blob ? **blob : "";
    }

    /// The plain text, or "failure" if that is all there is.
    std::string Unprotect(const std::string& blob, const std::string& entropy = "entropy",
                          std::uint32_t flags = ForMachine) {
        const auto plain = protection.Unprotect(blob, entropy, flags);
        if (!plain) return plain.Error() != 0 ? "failure" : "failure without a number";
        return plain->value_or("no data");
    }

    IMachineProtection& protection = Platform::MachineProtection();

private:
    TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    Platform::Testing::Replace<Platform::IKnownFolders> replaced{folders};
};

TEST_F(MachineProtectionContractTest, UnprotectGivesBackWhatWasProtected) {
    for (const std::uint32_t flags : {ForMachine, ForUser}) {
        for (const std::string& plain :
             {std::string("x"), std::string("with\0nul", 8), std::string(100000, 'y')}) {
            const std::string blob = Protect(plain, "entropy", flags);
            EXPECT_EQ(Unprotect(blob, "entropy", flags), plain);
            if (plain.size() > 1) {
                EXPECT_EQ(blob.find(plain), std::string::npos);
            }
        }
    }
}

TEST_F(MachineProtectionContractTest, EqualTextsGiveDifferentBlobs) {
    EXPECT_NE(Protect("secret"), Protect("secret"));
}

TEST_F(MachineProtectionContractTest, OtherEntropyFails) {
    const std::string blob = Protect("secret", "entropy");
    for (const std::string& other :
         {std::string("Entropy"), std::string("entropy\0", 8), std::string("entrop"), std::string()}) {
        EXPECT_EQ(Unprotect(blob, other), "failure") << other;
    }
    EXPECT_EQ(Unprotect(Protect("secret", ""), "entropy"), "failure");
    EXPECT_EQ(Unprotect(Protect("secret", ""), ""), "secret");
}

TEST_F(MachineProtectionContractTest, WhatIsNoBlobFails) {
    const std::string blob = Protect("secret");
    EXPECT_EQ(Unprotect("no blob"), "failure");
    EXPECT_EQ(Unprotect(blob.substr(0, blob.size() / 2)), "failure");
    EXPECT_EQ(Unprotect(blob.substr(1)), "failure");
}

}  // namespace
}  // namespace Ombry::Tests
