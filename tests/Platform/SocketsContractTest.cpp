#include "Platform/ISockets.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Fakes/LoopbackPeer.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <utility>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;

/// Owns a socket handle.
class Handle {
public:
    explicit Handle(SocketHandle number) : number(number) {}
    ~Handle() { Close(); }
    Handle(Handle&& other) noexcept : number(std::exchange(other.number, InvalidSocket)) {}
    Handle& operator=(Handle&&) = delete;
    operator SocketHandle() const { return number; }
    void Close() {
        if (number != InvalidSocket)
            static_cast<void>(Production<ISockets>().Close(std::exchange(number, InvalidSocket)));
    }

private:
    SocketHandle number;
};

class SocketsContractTest : public testing::Test {
protected:
    SocketsContractTest() { EXPECT_TRUE(sockets.Startup(0x0202)); }
    ~SocketsContractTest() override { EXPECT_TRUE(sockets.Cleanup()); }

    AddressEntry Loopback(std::uint16_t port) {
        return sockets
            .GetAddressInfo("127.0.0.1", std::to_string(port).c_str(),
                            {0, FamilyUnspecified, SocketTypeStream, ProtocolTcp})
            ->front();
    }

    Handle NewSocket() { return Handle(*sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp)); }

    /// Two ends that are both under test.
    struct Pair {
        Handle client;
        Handle server;
    };

    Pair Connected() {
        const LoopbackListener listener;
        Handle client = NewSocket();
        Connect(client, listener.Port());
        // The other end is made by the tests' own sockets, and handed over as it is.
        return {std::move(client), Handle(listener.Take())};
    }

    void Connect(SocketHandle client, std::uint16_t port) {
        const auto result = sockets.Connect(client, Loopback(port));
        if (result) return;
        ASSERT_TRUE(result.Error() == ErrorWouldBlock || result.Error() == ErrorInProgress) << result.Error();
        SocketSet write = SetOf({client});
        ASSERT_EQ(sockets.Select(nullptr, &write, nullptr, 5000).count, 1);
    }

    static SocketSet SetOf(std::initializer_list<SocketHandle> handles) {
        SocketSet set;
        for (const SocketHandle handle : handles)
            set.Add(handle);
        return set;
    }

    static std::vector<SocketHandle> Members(const SocketSet& set) { return {set.begin(), set.end()}; }

    ISockets& sockets = Production<ISockets>();
};

TEST_F(SocketsContractTest, StartupOffersTheVersionThatWasAskedFor) {
    const auto version = sockets.Startup(2);
    ASSERT_TRUE(version);
    EXPECT_EQ(*version, 2);
    EXPECT_TRUE(sockets.Cleanup());
}

TEST_F(SocketsContractTest, NonBlockingConnectGoesOnByANumberOfTheCore) {
    const LoopbackListener listener;
    const Handle client = NewSocket();
    ASSERT_TRUE(sockets.SetNonBlocking(client, true));
    const auto result = sockets.Connect(client, Loopback(listener.Port()));
    ASSERT_FALSE(result);
    EXPECT_TRUE(result.Error() == 10035 || result.Error() == 10036) << result.Error();
    SocketSet write = SetOf({client});
    EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 5000).count, 1);
    EXPECT_EQ(*sockets.GetSocketError(client), 0);
}

TEST_F(SocketsContractTest, TransfersNeverBlockOnBlockingSocket) {
    const Pair pair = Connected();
    char buffer[16];
    const TransferResult received = sockets.Receive(pair.client, buffer, sizeof buffer);
    EXPECT_EQ(received.count, -1);
    EXPECT_EQ(received.error, 10035);

    const std::string large(32 << 20, 'x');
    const TransferResult sent =
        sockets.Send(pair.client, large.data(), static_cast<std::uint32_t>(large.size()));
    EXPECT_GT(sent.count, 0);  // on Windows all of it
    TransferResult more = sent;
    while (more.count > 0)
        more = sockets.Send(pair.client, large.data(), static_cast<std::uint32_t>(large.size()));
    EXPECT_EQ(more.count, -1);
    EXPECT_EQ(more.error, 10035);
}

TEST_F(SocketsContractTest, TransferMovesExactlyWhatFits) {
    const Pair pair = Connected();
    EXPECT_EQ(sockets.Send(pair.client, "abcdef", 6).count, 6);
    SocketSet read = SetOf({pair.server});
    ASSERT_EQ(sockets.Select(&read, nullptr, nullptr, 5000).count, 1);
    std::string buffer(4, '.');
    EXPECT_EQ(sockets.Receive(pair.server, buffer.data(), 3).count, 3);
    EXPECT_EQ(buffer, "abc.");
    EXPECT_EQ(sockets.Receive(pair.server, buffer.data(), 4).count, 3);
    EXPECT_EQ(buffer, "def.");
}

TEST_F(SocketsContractTest, NullHostGivesLoopback) {
    const auto list = sockets.GetAddressInfo(nullptr, "80", {0, FamilyIPv4, SocketTypeStream, ProtocolTcp});
    ASSERT_TRUE(list);
    const auto name = sockets.NumericNameOf(list->front(), 46, 6);
    ASSERT_TRUE(name);
    EXPECT_EQ(name->host, "127.0.0.1");
    EXPECT_EQ(name->service, "80");
}

TEST_F(SocketsContractTest, SelectLeavesOnlyReadyHandlesInEachSet) {
    const Pair quiet = Connected();
    const Pair loud = Connected();
    ASSERT_EQ(sockets.Send(loud.server, "x", 1).count, 1);
    SocketSet read = SetOf({quiet.client, loud.client});
    SocketSet write = SetOf({quiet.client});
    SocketSet except = SetOf({quiet.client, loud.client});
    const SelectResult result = sockets.Select(&read, &write, &except, 5000);
    EXPECT_EQ(result.count, 2);
    EXPECT_EQ(result.error, 0);
    EXPECT_THAT(Members(read), ElementsAre(SocketHandle(loud.client)));
    EXPECT_THAT(Members(write), ElementsAre(SocketHandle(quiet.client)));
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsContractTest, SelectWithNothingReadyTimesOutWithEmptySets) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    const SelectResult result = sockets.Select(&read, nullptr, &except, 0);
    EXPECT_EQ(result.count, 0);
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(read.Count(), 0u);
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsContractTest, SelectWithoutSetsJustWaits) {
    const SelectResult result = sockets.Select(nullptr, nullptr, nullptr, 1);
    EXPECT_EQ(result.count, 0);
    EXPECT_EQ(result.error, 0);
}

TEST_F(SocketsContractTest, RefusedConnectShowsInTheWriteOrTheExceptionSetAndItsErrorIsRead) {
    const HeldPort port;
    const Handle client = NewSocket();
    ASSERT_TRUE(sockets.SetNonBlocking(client, true));
    const auto begun = sockets.Connect(client, Loopback(port.Port()));
    ASSERT_TRUE(begun.Error() == ErrorInProgress || begun.Error() == ErrorWouldBlock) << begun.Error();
    SocketSet write = SetOf({client});
    SocketSet except = SetOf({client});
    EXPECT_EQ(sockets.Select(nullptr, &write, &except, 5000).count, 1);
    EXPECT_NE(write.Contains(client), except.Contains(client));
    const auto error = sockets.GetSocketError(client);
    ASSERT_TRUE(error);
    EXPECT_NE(*error, 0);
}

TEST_F(SocketsContractTest, HangUpShowsInTheReadSetBehindTheLastBytes) {
    Pair pair = Connected();
    ASSERT_EQ(sockets.Send(pair.server, "last", 4).count, 4);
    pair.server.Close();
    SocketSet read = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(&read, nullptr, &except, 5000).count, 1);
    EXPECT_TRUE(read.Contains(pair.client));
    char buffer[8];
    EXPECT_EQ(sockets.Receive(pair.client, buffer, sizeof buffer).count, 4);
    read = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 5000).count, 1);
    const TransferResult end = sockets.Receive(pair.client, buffer, sizeof buffer);
    EXPECT_EQ(end.count, 0);
    EXPECT_EQ(end.error, 0);
}

TEST_F(SocketsContractTest, AllSixtyFourMembersOfThreeSetsAreLookedAt) {
    std::vector<Pair> pairs;
    SocketSet read;
    SocketSet write;
    SocketSet except;
    for (std::size_t i = 0; i < SocketSet::Capacity; ++i) {
        pairs.push_back(Connected());
        read.Add(pairs.back().client);
        write.Add(pairs.back().client);
        except.Add(pairs.back().client);
    }
    ASSERT_EQ(sockets.Send(pairs.back().server, "x", 1).count, 1);
    SocketSet last = SetOf({pairs.back().client});
    ASSERT_EQ(sockets.Select(&last, nullptr, nullptr, 5000).count, 1);
    EXPECT_EQ(sockets.Select(&read, &write, &except, 5000).count, 65);
    EXPECT_THAT(Members(read), ElementsAre(SocketHandle(pairs.back().client)));
    EXPECT_EQ(write.Count(), 64u);
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsContractTest, SocketThatWasClosedOrNeverWasFailsEveryOperation) {
    Handle closed = NewSocket();
    const SocketHandle number = closed;
    closed.Close();
    for (const SocketHandle handle : {number, InvalidSocket}) {
        EXPECT_FALSE(sockets.Close(handle));
        EXPECT_FALSE(sockets.SetNonBlocking(handle, true));
        EXPECT_FALSE(sockets.GetSocketError(handle));
        EXPECT_FALSE(sockets.Connect(handle, Loopback(1)));
        char byte = 0;
        EXPECT_EQ(sockets.Receive(handle, &byte, 1).count, -1);
        EXPECT_EQ(sockets.Send(handle, &byte, 1).count, -1);
        SocketSet read = SetOf({handle});
        const SelectResult result = sockets.Select(&read, nullptr, nullptr, 0);
        EXPECT_EQ(result.count, -1);
        EXPECT_NE(result.error, 0);
    }
}

TEST_F(SocketsContractTest, SendToAPeerThatHasGoneFails) {
    Pair pair = Connected();
    pair.server.Close();
    TransferResult sent;
    while ((sent = sockets.Send(pair.client, "x", 1)).count == 1) {
        SocketSet read = SetOf({pair.client});
        sockets.Select(&read, nullptr, nullptr, 5000);
    }
    EXPECT_EQ(sent.count, -1);
    EXPECT_NE(sent.error, ErrorWouldBlock);
}

TEST_F(SocketsContractTest, NumericAddressesOfBothFamiliesComeBackAsTheyWere) {
    for (const auto& [host, family] : {std::pair{"127.0.0.1", FamilyIPv4}, {"::1", FamilyIPv6}}) {
        const auto list =
            sockets.GetAddressInfo(host, "8181", {0, FamilyUnspecified, SocketTypeStream, ProtocolTcp});
        ASSERT_TRUE(list) << host;
        ASSERT_EQ(list->size(), 1u) << host;
        EXPECT_EQ(list->front().family, family);
        EXPECT_EQ(list->front().socketType, SocketTypeStream);
        EXPECT_EQ(list->front().protocol, ProtocolTcp);
        const auto name = sockets.NumericNameOf(list->front(), 46, 6);
        ASSERT_TRUE(name) << host;
        EXPECT_EQ(name->host, host);
        EXPECT_EQ(name->service, "8181");
    }
}

TEST_F(SocketsContractTest, NameThatDoesNotFitWithItsTerminatorFails) {
    const AddressEntry address = Loopback(8181);
    EXPECT_TRUE(sockets.NumericNameOf(address, 10, 5));
    EXPECT_FALSE(sockets.NumericNameOf(address, 9, 5));
    EXPECT_FALSE(sockets.NumericNameOf(address, 10, 4));
}

TEST_F(SocketsContractTest, HostThatIsNoneFailsToResolve) {
    const auto list =
        sockets.GetAddressInfo("no host", "80", {0, FamilyUnspecified, SocketTypeStream, ProtocolTcp});
    EXPECT_FALSE(list);
    EXPECT_NE(list.Error(), 0);
}

TEST(SocketSetTest, HoldsEachHandleOnceAndSixtyFourAtMost) {
    SocketSet set;
    for (SocketHandle handle = 0; handle < 70; ++handle) {
        set.Add(handle);
        set.Add(handle);
    }
    EXPECT_EQ(set.Count(), 64u);
    EXPECT_TRUE(set.Contains(63));
    EXPECT_FALSE(set.Contains(64));
    EXPECT_EQ(set[63], 63);
    set.Clear();
    EXPECT_EQ(set.Count(), 0u);
    EXPECT_FALSE(set.Contains(0));
}

}  // namespace
}  // namespace Ombry::Tests
