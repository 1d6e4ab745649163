// What sockets do at the ends of what they are given, and what their peers can do to them.

#include "tests/Platform/SocketsLoopbackFixture.h"

#include <limits>

namespace Ombry::Tests {
namespace {

using namespace Platform;

TEST_F(SocketsLoopbackTest, SocketsOutliveTheReferencesOnTheLibrary) {
    const TestedSocket socket = NewSocket();
    ASSERT_TRUE(sockets.Startup(2));
    EXPECT_TRUE(sockets.Cleanup());
    EXPECT_TRUE(sockets.GetSocketError(socket));
}

TEST_F(SocketsLoopbackTest, SocketOfNoKnownFamilyCannotBeMade) {
    EXPECT_FALSE(sockets.Create(9999, SocketTypeStream, ProtocolTcp));
    EXPECT_NE(sockets.Create(9999, SocketTypeStream, ProtocolTcp).Error(), 0);
}

TEST_F(SocketsLoopbackTest, AddressLongerThanAnyIsRefused) {
    AddressEntry entry = Loopback(1);
    entry.address.resize(1000);
    const TestedSocket socket = NewSocket();
    EXPECT_FALSE(sockets.Bind(socket, entry));
    EXPECT_FALSE(sockets.Connect(socket, entry));
    EXPECT_FALSE(sockets.NumericNameOf(entry, 46, 6));
}

TEST_F(SocketsLoopbackTest, PortInUseCannotBeBound) {
    const PeerSocket listener(BlockingSockets::Listen());
    const TestedSocket other = NewSocket();
    EXPECT_FALSE(sockets.Bind(other, Loopback(BlockingSockets::PortOf(listener))));
}

// Transfers.

TEST_F(SocketsLoopbackTest, TransfersNeverWaitWhateverTheMode) {
    const Pair pair = Connected();
    const std::string large(32 << 20, 'x');
    for (const bool nonBlocking : {true, false}) {
        ASSERT_TRUE(sockets.SetNonBlocking(pair.client, nonBlocking));
        char byte = 0;
        const TransferResult received = sockets.Receive(pair.client, &byte, 1);
        EXPECT_EQ(received.count, -1);
        EXPECT_EQ(received.error, 10035);
        TransferResult sent{1, 0};
        while (sent.count > 0)
            sent = sockets.Send(pair.client, large.data(), static_cast<std::uint32_t>(large.size()));
        EXPECT_EQ(sent.count, -1);
        EXPECT_EQ(sent.error, 10035);
    }
}

TEST_F(SocketsLoopbackTest, BytesThatMoreFollowArriveWithThoseBehindThem) {
    const Pair pair = Connected();
    EXPECT_EQ(sockets.Send(pair.client, "head", 4, true).count, 4);
    EXPECT_EQ(sockets.Send(pair.client, "body", 4).count, 4);
    std::string all;
    while (all.size() < 8) {
        char buffer[8];
        const std::size_t count = BlockingSockets::Receive(pair.server, buffer, sizeof buffer);
        ASSERT_GT(count, 0u);
        all.append(buffer, count);
    }
    EXPECT_EQ(all, "headbody");
}

TEST_F(SocketsLoopbackTest, ResetConnectionIsReadyAndMovesNothing) {
    Pair pair = Connected();
    BlockingSockets::ResetOnClose(pair.server);
    pair.server.Close();
    ASSERT_TRUE(IsReadable(pair.client));
    SocketSet write = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, Long).count, 1);
    char byte = 0;
    const TransferResult received = sockets.Receive(pair.client, &byte, 1);
    EXPECT_LE(received.count, 0);
    EXPECT_NE(received.error, ErrorWouldBlock);
    EXPECT_EQ(sockets.Send(pair.client, &byte, 1).count, -1);
}

// Waiting.

TEST_F(SocketsLoopbackTest, SelectForNoTimeOrLessLooksOnce) {
    const Pair pair = Connected();
    for (const std::int64_t milliseconds :
         {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}}) {
        SocketSet read = SetOf({pair.client});
        SocketSet except = SetOf({pair.client});
        const SelectResult result = sockets.Select(&read, nullptr, &except, milliseconds);
        EXPECT_EQ(result.count, 0);
        EXPECT_EQ(result.error, 0);
        EXPECT_EQ(read.Count(), 0u);
        EXPECT_EQ(except.Count(), 0u);
    }
}

TEST_F(SocketsLoopbackTest, SelectOfNothingJustWaits) {
    SocketSet empty;
    for (SocketSet* const set : {static_cast<SocketSet*>(nullptr), &empty}) {
        const SelectResult result = sockets.Select(set, set, set, 1);
        EXPECT_EQ(result.count, 0);
        EXPECT_EQ(result.error, 0);
    }
}

TEST_F(SocketsLoopbackTest, NoTimeIsTooLongForSelect) {
    const Pair pair = Connected();
    for (const std::int64_t milliseconds : {std::int64_t{0x1'0000'0000}, std::int64_t{4'000'000'000'000},
                                            std::numeric_limits<std::int64_t>::max()}) {
        SocketSet write = SetOf({pair.client});
        EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, milliseconds).count, 1) << milliseconds;
    }
}

TEST_F(SocketsLoopbackTest, SelectEndsWhenDataComes) {
    const Pair pair = Connected();
    std::thread sender([&] { EXPECT_TRUE(BlockingSockets::Send(pair.server, "x", 1)); });
    EXPECT_TRUE(IsReadable(pair.client));
    sender.join();
}

TEST_F(SocketsLoopbackTest, UrgentDataShowsInTheExceptionSet) {
    const Pair pair = Connected();
    ASSERT_TRUE(BlockingSockets::SendUrgent(pair.server));
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(nullptr, nullptr, &except, Long).count, 1);
    EXPECT_TRUE(except.Contains(pair.client));
}

TEST_F(SocketsLoopbackTest, HangUpOfThePeerIsNoExceptionAndDoesNotEndAWaitForOne) {
    Pair pair = Connected();
    pair.server.Close();
    ASSERT_TRUE(IsReadable(pair.client));
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(nullptr, nullptr, &except, 1).count, 0);
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsLoopbackTest, WhatCannotBeResolvedFailsWithANumber) {
    const AddressHints hints{0, FamilyUnspecified, SocketTypeStream, ProtocolTcp};
    EXPECT_NE(sockets.GetAddressInfo(nullptr, nullptr, hints).Error(), 0);
    EXPECT_NE(sockets.GetAddressInfo("127.0.0.1", "80", {0, 9999, SocketTypeStream, ProtocolTcp}).Error(), 0);
}

}  // namespace
}  // namespace Ombry::Tests
