#include "OmbryZephCore/ZephSSPILoader.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSecurityProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSSPILoader;
using testing::ElementsAre;
using testing::IsEmpty;

class SSPILoaderTest : public testing::Test {
protected:
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ScriptedSecurityProvider provider;
    Platform::Testing::Replace<Platform::ISecurityProvider> replaced{provider};
    ZephSSPILoader loader{logger};
};

TEST_F(SSPILoaderTest, HasNoFunctionsBeforeItIsInitialized) {
    EXPECT_EQ(loader.GetFunctions(), nullptr);
    loader.Unload();
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SSPILoaderTest, TakesTheTableOfTheProviderLibrary) {
    EXPECT_EQ(loader.Initialize(true), 0u);
    EXPECT_EQ(loader.GetFunctions(), &provider);
    EXPECT_THAT(provider.calls, ElementsAre("LoadModule SCHANNEL.DLL",
                                            "FindEntryPoint InitSecurityInterfaceA", "CallEntryPoint"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SSPILoaderTest, DoesNothingOnceItHasTheTable) {
    loader.Initialize(true);
    provider.calls.clear();
    EXPECT_EQ(loader.Initialize(true), 0u);
    EXPECT_EQ(loader.Initialize(false), 0u);
    EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(SSPILoaderTest, UnloadReleasesTheLibraryOnce) {
    loader.Initialize(true);
    loader.Unload();
    EXPECT_EQ(loader.GetFunctions(), nullptr);
    loader.Unload();
    EXPECT_EQ(provider.CallsOf("ReleaseModule"), 1);
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SSPILoaderTest, LoadsAgainAfterUnload) {
    loader.Initialize(true);
    loader.Unload();
    EXPECT_EQ(loader.Initialize(true), 0u);
    EXPECT_EQ(loader.GetFunctions(), &provider);
    EXPECT_EQ(provider.books.Opened("module"), 2);
}

TEST_F(SSPILoaderTest, DestructionReleasesTheLibrary) {
    { ZephSSPILoader(logger).Initialize(true); }
    EXPECT_EQ(provider.CallsOf("ReleaseModule"), 1);
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SSPILoaderTest, SaysThatTheProviderLibraryCannotBeLoaded) {
    provider.loadErrors["SCHANNEL.DLL"] = 126;
    EXPECT_EQ(loader.Initialize(true), 126u);
    EXPECT_EQ(loader.GetFunctions(), nullptr);
    EXPECT_THAT(logger->Messages(4), ElementsAre("Cannot load SCHANNEL.DLL (error 126)."));
    EXPECT_THAT(provider.calls, ElementsAre("LoadModule SCHANNEL.DLL"));
}

TEST_F(SSPILoaderTest, TakesTheGeneralLibraryWhenAskedTo) {
    EXPECT_EQ(loader.Initialize(false), 0u);
    EXPECT_EQ(provider.calls.front(), "LoadModule SECUR32.DLL");
    EXPECT_EQ(provider.books.Opened("module"), 1);
    loader.Unload();
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SSPILoaderTest, FallsBackToTheOlderGeneralLibrary) {
    provider.loadErrors["SECUR32.DLL"] = 126;
    EXPECT_EQ(loader.Initialize(false), 0u);
    EXPECT_THAT(provider.calls, ElementsAre("LoadModule SECUR32.DLL", "LoadModule SECURITY.DLL",
                                            "FindEntryPoint InitSecurityInterfaceA", "CallEntryPoint"));
    EXPECT_EQ(loader.GetFunctions(), &provider);
    EXPECT_THAT(logger->Messages(), IsEmpty());
    loader.Unload();
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SSPILoaderTest, NamesBothErrorsWhenNoGeneralLibraryLoads) {
    provider.loadErrors = {{"SECUR32.DLL", 126}, {"SECURITY.DLL", 5}};
    EXPECT_EQ(loader.Initialize(false), 5u);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Cannot load SECUR32.DLL (error 126) or SECURITY.DLL (error 5)."));
    EXPECT_EQ(provider.calls.size(), 2u);
}

TEST_F(SSPILoaderTest, ReleasesALibraryWithoutInitializationFunction) {
    provider.entryPointError = 127;
    EXPECT_EQ(loader.Initialize(true), 127u);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Failed to get the address of the initialization function for "
                            "the security DLL (error 127)."));
    EXPECT_THAT(provider.calls, ElementsAre("LoadModule SCHANNEL.DLL",
                                            "FindEntryPoint InitSecurityInterfaceA", "ReleaseModule"));
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SSPILoaderTest, ReleasesALibraryThatFailsToInitializeAndLogsTwoBlanks) {
    provider.initError = 1114;
    EXPECT_EQ(loader.Initialize(true), 1114u);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Security DLL initialization function failed  (error 1114)."));
    EXPECT_EQ(provider.calls.back(), "ReleaseModule");
    EXPECT_EQ(loader.GetFunctions(), nullptr);
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SSPILoaderTest, AFailureWithErrorZeroIsStillAFailure) {
    provider.nullTable = true;
    EXPECT_EQ(loader.Initialize(true), 1u);
    EXPECT_THAT(logger->Messages(4), ElementsAre("Security DLL initialization function failed  (error 0)."));
    EXPECT_THAT(provider.books.Faults(), IsEmpty());
}

TEST_F(SSPILoaderTest, CanSucceedAfterAFailure) {
    provider.entryPointError = 127;
    loader.Initialize(true);
    provider.entryPointError = -1;
    EXPECT_EQ(loader.Initialize(true), 0u);
    EXPECT_EQ(loader.GetFunctions(), &provider);
}

}  // namespace
}  // namespace Ombry::Tests
