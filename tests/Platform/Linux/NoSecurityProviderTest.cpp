#include "Platform/ISecurityProvider.h"

namespace Ombry::Tests {
namespace {

using namespace Platform;

TEST(NoSecurityProviderTest, NoLibraryIsFoundOnLinux) {
    for (const char* name : {"SCHANNEL.DLL", "SECUR32.DLL", "SECURITY.DLL"}) {
        const auto module = SecurityProvider().LoadModule(name);
        EXPECT_FALSE(module) << name;
        EXPECT_EQ(module.Error(), 2) << name;
    }
}

TEST(NoSecurityProviderTest, NothingBehindTheLibraryIsFoundOnLinux) {
    const auto entryPoint = SecurityProvider().FindEntryPoint(1, "InitSecurityInterfaceA");
    EXPECT_FALSE(entryPoint);
    EXPECT_EQ(entryPoint.Error(), 2);
    const auto table = SecurityProvider().CallEntryPoint(1);
    EXPECT_FALSE(table);
    EXPECT_EQ(table.Error(), 2);
}

}  // namespace
}  // namespace Ombry::Tests
