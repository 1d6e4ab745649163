// The engine of the other system, where nothing answers for its provider.

#include "OmbryZephCore/ZephSChannelClientConnectionManager.h"
#include "OmbryZephCore/ZephSSPILoader.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace Ombry::Tests {
namespace {

using ::testing::ElementsAre;
using namespace OmbryZephCore;

TEST(SChannelManagerOnLinuxTest, CannotBeInitializedAndSaysSo) {
    auto logger = std::make_shared<RecordingLogger>();
    ZephSChannelClientConnectionManager manager(logger, false);
    EXPECT_EQ(manager.Initialize("server.example", false, {}), 2u);
    EXPECT_THAT(logger->Messages(4), ElementsAre("Cannot load SCHANNEL.DLL (error 2)."));
    EXPECT_EQ(manager.GetConnection(), nullptr);
}

TEST(SSPILoaderOnLinuxTest, SaysThatTheLibraryIsNotThere) {
    auto logger = std::make_shared<RecordingLogger>();
    ZephSSPILoader loader(logger);
    EXPECT_EQ(loader.Initialize(true), 2u);
    EXPECT_EQ(loader.Initialize(false), 2u);
    EXPECT_THAT(logger->Messages(4),
                ElementsAre("Cannot load SCHANNEL.DLL (error 2).",
                            "Cannot load SECUR32.DLL (error 2) or SECURITY.DLL (error 2)."));
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephSSPILoader::Initialize");
}

TEST(SSPILoaderOnLinuxTest, NeedsNoLogger) {
    ZephSSPILoader loader(nullptr);
    EXPECT_EQ(loader.Initialize(true), 2u);
}

}  // namespace
}  // namespace Ombry::Tests
