#include "OmbryZephCore/ZephSorrelSyncConnection.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

class ZephSorrelSyncConnectionTest : public ::testing::Test {
protected:
    std::size_t Connects() const { return sockets.CallsOf("Connect"); }
    void AskToClose() {
        EXPECT_EQ(
            connection.GetHttpConnection().SendRequest("GET", "/", true, nullptr, nullptr, nullptr, false, 0),
            0u);
    }

    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::ISockets> replaced{sockets};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ZephSorrelSyncConnection connection{logger, false};
    const ZephSorrelConnectionParameters params{"host", 80};
};

TEST_F(ZephSorrelSyncConnectionTest, BeginsUnconfigured) {
    EXPECT_EQ(connection.EnsureConnected(), 7u);
    EXPECT_EQ(connection.Reconnect(), 7u);
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(connection.GetParameters().GetHost(), "");
    EXPECT_EQ(connection.GetParameters().GetPort(), 0);
    connection.Disconnect();
    EXPECT_EQ(sockets.Calls().size(), 0u);
}

TEST_F(ZephSorrelSyncConnectionTest, ConnectsOnceWithItsParameters) {
    connection.Configure(params);
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(connection.EnsureConnected(), 0u);
    EXPECT_TRUE(connection.IsConnected());
    EXPECT_EQ(connection.EnsureConnected(), 0u);
    EXPECT_EQ(Connects(), 1u);
    EXPECT_EQ(connection.GetParameters().GetHost(), "host");
    EXPECT_THAT(sockets.Calls(), ::testing::Contains("Connect(100, host:80)"));
}

TEST_F(ZephSorrelSyncConnectionTest, EveryCauseOfAFailedConnectLooksTheSame) {
    connection.Configure(params);
    sockets.FailNthCall("GetAddressInfo", 1, -2);
    EXPECT_EQ(connection.EnsureConnected(), 11u) << "the resolver's 14";
    sockets.FailNthCall("Connect", 1, 111);
    EXPECT_EQ(connection.EnsureConnected(), 11u) << "the connector's 1";
    connection.Configure(ZephSorrelConnectionParameters("", 80));
    EXPECT_EQ(connection.EnsureConnected(), 11u) << "the assembly's 5";
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionTest, AConnectionThatWasAskedToCloseIsReplacedAtItsNextUse) {
    connection.Configure(params);
    connection.EnsureConnected();
    AskToClose();
    EXPECT_TRUE(connection.IsConnected());
    EXPECT_EQ(connection.EnsureConnected(), 0u);
    EXPECT_EQ(Connects(), 2u);
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    EXPECT_FALSE(connection.GetHttpConnection().IsCloseRequested());
}

TEST_F(ZephSorrelSyncConnectionTest, AnIdleConnectionThatThePeerClosedIsNotNoticedBeforeItsUse) {
    connection.Configure(params);
    connection.EnsureConnected();
    sockets.CloseByPeer(100);
    EXPECT_EQ(connection.EnsureConnected(), 0u);
    EXPECT_EQ(Connects(), 1u);
}

TEST_F(ZephSorrelSyncConnectionTest, ReconnectTakesTheOldConnectionDownFirst) {
    connection.Configure(params);
    EXPECT_EQ(connection.Reconnect(), 0u);
    EXPECT_EQ(connection.Reconnect(), 0u);
    EXPECT_EQ(Connects(), 2u);
    EXPECT_EQ(sockets.OpenSockets(), 1u);
    EXPECT_FALSE(sockets.IsOpen(100));
    sockets.FailNthCall("Connect", 1, 111);
    EXPECT_EQ(connection.Reconnect(), 11u);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephSorrelSyncConnectionTest, DisconnectLeavesItConfigured) {
    connection.Configure(params);
    connection.EnsureConnected();
    connection.Disconnect();
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(connection.EnsureConnected(), 0u);
}

TEST_F(ZephSorrelSyncConnectionTest, ResetDisconnectsAndForgetsItsParameters) {
    connection.Configure(params);
    connection.EnsureConnected();
    connection.Reset();
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(connection.GetParameters().GetHost(), "");
    EXPECT_EQ(connection.GetParameters().GetPort(), 0);
    EXPECT_EQ(connection.EnsureConnected(), 7u);
}

TEST_F(ZephSorrelSyncConnectionTest, ANewConfigurationTakesTheOldConnectionDown) {
    connection.Configure(params);
    connection.EnsureConnected();
    connection.Configure(ZephSorrelConnectionParameters("other", 81));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(connection.EnsureConnected(), 0u);
    EXPECT_THAT(sockets.Calls(), ::testing::Contains("Connect(101, other:81)"));
}

TEST_F(ZephSorrelSyncConnectionTest, ItsEndClosesItsSocket) {
    {
        ZephSorrelSyncConnection other(logger, false);
        other.Configure(params);
        other.EnsureConnected();
        EXPECT_EQ(sockets.OpenSockets(), 1u);
    }
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(sockets.LibraryReferences(), 0);
}

}  // namespace
}  // namespace Ombry::Tests
