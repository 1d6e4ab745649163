#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"
#include "tests/Fakes/FailureOf.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FakeProtections.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/TemporaryDirectory.h"

namespace Ombry::Tests {
namespace {

using ClientCommunications::WindowsPersistableDataProtection;

class WindowsPersistableDataProtectionTest : public testing::Test {
protected:
    FakeMachineProtection machine;
    Platform::Testing::Replace<Platform::IMachineProtection> replaced{machine};
};

TEST_F(WindowsPersistableDataProtectionTest, TheBlobIsThePlatformsOwnWithTheFlagsOfTheScope) {
    const std::string entropy("e\0y", 3);
    std::string data = "text";
    WindowsPersistableDataProtection(entropy, false).Protect(data);
    EXPECT_EQ(data, entropy + "|5|txet");

    data = "text";
    WindowsPersistableDataProtection(entropy, true).Protect(data);
    EXPECT_EQ(data, entropy + "|1|txet");
}

TEST_F(WindowsPersistableDataProtectionTest, UnprotectUsesTheSameEntropyAndFlags) {
    for (const bool userScope : {false, true}) {
        WindowsPersistableDataProtection protection("entropy", userScope);
        std::string data("a\0b\xff", 4);
        protection.Protect(data);
        protection.Unprotect(data);
        EXPECT_EQ(data, std::string("a\0b\xff", 4));
    }
}

TEST_F(WindowsPersistableDataProtectionTest, EmptyTextPassesThroughWithoutASystemCall) {
    WindowsPersistableDataProtection protection("entropy", false);
    std::string data;
    protection.Protect(data);
    protection.Unprotect(data);
    EXPECT_EQ(data, "");
    EXPECT_TRUE(machine.calls.empty());
}

TEST_F(WindowsPersistableDataProtectionTest, DataOfNoLengthIsNotTheSameAsNoData) {
    std::string data = "e|5|";
    EXPECT_EQ(FailureOf([&] { WindowsPersistableDataProtection("e", false).Unprotect(data); }), "no failure");
    EXPECT_EQ(data, "");
}

TEST_F(WindowsPersistableDataProtectionTest, FailuresHaveTheirTextsAndLeaveTheData) {
    WindowsPersistableDataProtection protection("entropy", false);
    std::string data = "data";
    machine.failing = "Protect";
    machine.error = 5;
    EXPECT_EQ(FailureOf([&] { protection.Protect(data); }), "CryptProtectData failed with error 5");
    machine.error = static_cast<int>(0x8009000B);
    EXPECT_EQ(FailureOf([&] { protection.Protect(data); }), "CryptProtectData failed with error 2148073483");
    machine.error = 0;
    EXPECT_EQ(FailureOf([&] { protection.Protect(data); }),
              "CryptProtectData succeeded but returned no data");
    machine.failing = "Unprotect";
    machine.error = 13;
    EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }), "CryptUnprotectData failed with error 13");
    machine.error = 0;
    EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }),
              "CryptUnprotectData succeeded but returned no data");
    EXPECT_EQ(data, "data");
}

TEST_F(WindowsPersistableDataProtectionTest, ProtectingLeavesNoPlainTextInTheMemoryThatItFrees) {
    WindowsPersistableDataProtection protection("entropy", false);
    const std::string plain = "a secret too long for a string object";
    std::string data = plain;
    {
        const FreedMemory freed(plain);
        protection.Protect(data);
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    }
    EXPECT_NE(data, plain);
    protection.Unprotect(data);
    EXPECT_EQ(data, plain);
}

class WindowsPersistableDataProtectionOnSystemTest : public testing::Test {
protected:
    const TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machineId{"0123456789abcdef0123456789abcdef"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedId{machineId};
};

TEST_F(WindowsPersistableDataProtectionOnSystemTest, EveryLengthComesBackAndTheBlobHidesIt) {
    WindowsPersistableDataProtection protection("entropy", false);
    std::string plain;
    for (int length = 1; length <= 64; ++length) {
        plain += static_cast<char>(static_cast<unsigned char>(length % 4 == 0 ? 0 : length));
        std::string data = plain;
        protection.Protect(data);
        if (length > 4) {
            EXPECT_EQ(data.find(plain), std::string::npos);
        }
        protection.Unprotect(data);
        EXPECT_EQ(data, plain);
    }
}

TEST_F(WindowsPersistableDataProtectionOnSystemTest, OneTextNeverGivesTheSameBlobTwice) {
    WindowsPersistableDataProtection protection("entropy", false);
    std::string first = "text", second = "text";
    protection.Protect(first);
    protection.Protect(second);
    EXPECT_NE(first, second);
}

}  // namespace
}  // namespace Ombry::Tests
