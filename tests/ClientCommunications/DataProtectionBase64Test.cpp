#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/DataProtectionBase64.h"
#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"
#include "tests/Fakes/FailureOf.h"
#include "tests/Fakes/FakeProtections.h"

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

/// Over the layer that it stands on in the product, with the platform's part faked.
class DataProtectionBase64Test : public testing::Test {
protected:
    FakeMachineProtection machine;
    Platform::Testing::Replace<Platform::IMachineProtection> replaced{machine};
    DataProtectionBase64 protection{std::make_shared<WindowsPersistableDataProtection>("e", false)};
};

TEST_F(DataProtectionBase64Test, MakesWhatItsInnerLayerProducesFitForText) {
    std::string data = "text";
    protection.Protect(data);
    EXPECT_EQ(data, Base64Encode("e|5|txet"));
    protection.Unprotect(data);
    EXPECT_EQ(data, "text");
}

TEST_F(DataProtectionBase64Test, PassesEmptyTextAndFailuresThrough) {
    std::string data;
    protection.Protect(data);
    EXPECT_EQ(data, "");
    protection.Unprotect(data);
    EXPECT_EQ(data, "");
    EXPECT_TRUE(machine.calls.empty());

    machine.failing = "Protect";
    machine.error = 5;
    data = "data";
    EXPECT_EQ(FailureOf([&] { protection.Protect(data); }), "CryptProtectData failed with error 5");
    EXPECT_EQ(data, "data");
    machine.failing = "Unprotect";
    EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }), "CryptUnprotectData failed with error 5");
}

}  // namespace
}  // namespace Ombry::Tests
