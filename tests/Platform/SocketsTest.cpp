#include "Platform/ISockets.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "tests/Platform/SystemCalls.h"

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
        if (number >= 0) close(static_cast<int>(std::exchange(number, InvalidSocket)));
    }

private:
    SocketHandle number;
};

class SocketsTest : public testing::Test {
protected:
    static AddressEntry Loopback(std::uint16_t port) {
        const auto list = Production<ISockets>().GetAddressInfo(
            "127.0.0.1", std::to_string(port).c_str(), {0, FamilyUnspecified, SocketTypeStream, ProtocolTcp});
        return list->front();
    }

    Handle NewSocket() { return Handle(*sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp)); }

    /// A socket that listens on a port of the system's choice.
    Handle Listen() {
        Handle listener = NewSocket();
        EXPECT_TRUE(sockets.Bind(listener, Loopback(0)));
        EXPECT_EQ(listen(static_cast<int>(SocketHandle(listener)), 8), 0);
        return listener;
    }

    static std::uint16_t PortOf(SocketHandle socket) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    struct Pair {
        Handle client;
        Handle server;
    };

    Pair Connected() {
        Handle listener = Listen();
        Handle client = NewSocket();
        EXPECT_TRUE(sockets.Connect(client, Loopback(PortOf(listener))));
        Handle server(accept(static_cast<int>(SocketHandle(listener)), nullptr, nullptr));
        return {std::move(client), std::move(server)};
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

TEST_F(SocketsTest, StartupOffersTheVersionThatWasAskedFor) {
    const auto version = sockets.Startup(2);
    ASSERT_TRUE(version);
    EXPECT_EQ(*version, 2);
    EXPECT_TRUE(sockets.Cleanup());
}

// Creation.

TEST_F(SocketsTest, NewSocketIsCloseOnExecAndSendsWithoutDelay) {
    for (const int family : {FamilyIPv4, FamilyIPv6}) {
        const auto created = sockets.Create(family, SocketTypeStream, ProtocolTcp);
        ASSERT_TRUE(created);
        const Handle socket(*created);
        const int number = static_cast<int>(*created);
        EXPECT_NE(fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
        int noDelay = 0;
        socklen_t length = sizeof noDelay;
        ASSERT_EQ(getsockopt(number, IPPROTO_TCP, TCP_NODELAY, &noDelay, &length), 0);
        EXPECT_EQ(noDelay, 1);
        EXPECT_EQ(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
    }
}

TEST_F(SocketsTest, CreationThatTheSystemRefusesGivesItsNumber) {
    EXPECT_EQ(sockets.Create(9999, SocketTypeStream, ProtocolTcp).Error(), EAFNOSUPPORT);
    SystemCalls calls;
    calls.Fail("socket", EMFILE);
    EXPECT_EQ(sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp).Error(), EMFILE);
}

TEST_F(SocketsTest, SocketThatRefusesNoDelayIsStillCreated) {
    SystemCalls calls;
    calls.Fail("setsockopt", EOPNOTSUPP);
    const auto created = sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp);
    ASSERT_TRUE(created);
    const Handle socket(*created);
    EXPECT_THAT(calls.Names(), ElementsAre("socket", "setsockopt"));
}

TEST_F(SocketsTest, ClosedSocketCannotBeUsedAgain) {
    const auto created = sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp);
    ASSERT_TRUE(created);
    EXPECT_TRUE(sockets.Close(*created));
    EXPECT_EQ(sockets.Close(*created).Error(), EBADF);
    EXPECT_EQ(sockets.SetNonBlocking(*created, true).Error(), EBADF);
    EXPECT_EQ(sockets.GetSocketError(*created).Error(), EBADF);
    EXPECT_EQ(sockets.Bind(*created, Loopback(0)).Error(), EBADF);
    EXPECT_EQ(sockets.Connect(*created, Loopback(1)).Error(), EBADF);
    char byte = 0;
    EXPECT_EQ(sockets.Receive(*created, &byte, 1).error, EBADF);
    EXPECT_EQ(sockets.Send(*created, &byte, 1).count, -1);
}

TEST_F(SocketsTest, InvalidHandleIsRefusedByAllOperations) {
    for (const SocketHandle handle : {InvalidSocket, SocketHandle{-5}, SocketHandle{1} << 40}) {
        EXPECT_EQ(sockets.Close(handle).Error(), EBADF);
        EXPECT_EQ(sockets.GetSocketError(handle).Error(), EBADF);
    }
}

TEST_F(SocketsTest, InterruptedCloseIsNotRepeated) {
    const auto created = sockets.Create(FamilyIPv4, SocketTypeStream, ProtocolTcp);
    SystemCalls calls;
    calls.Fail("close", EINTR);
    EXPECT_TRUE(sockets.Close(*created));
    EXPECT_EQ(calls.Count("close"), 1u);
}

TEST_F(SocketsTest, NonBlockingModeIsSwitchedOnAndOff) {
    const Handle socket = NewSocket();
    const int number = static_cast<int>(SocketHandle(socket));
    EXPECT_TRUE(sockets.SetNonBlocking(socket, true));
    EXPECT_NE(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(sockets.SetNonBlocking(socket, false));
    EXPECT_EQ(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(SocketsTest, BindToPortInUseGivesTheSystemsNumber) {
    const Handle listener = Listen();
    const Handle other = NewSocket();
    EXPECT_EQ(sockets.Bind(other, Loopback(PortOf(listener))).Error(), EADDRINUSE);
}

TEST_F(SocketsTest, AddressLongerThanAnyIsRefused) {
    AddressEntry entry = Loopback(1);
    entry.address.resize(sizeof(sockaddr_storage) + 1);
    const Handle socket = NewSocket();
    EXPECT_EQ(sockets.Bind(socket, entry).Error(), EINVAL);
    EXPECT_EQ(sockets.Connect(socket, entry).Error(), EINVAL);
    EXPECT_FALSE(sockets.GetNameInfo(entry, 46, 6));
}

// Connecting.

TEST_F(SocketsTest, NonBlockingConnectIsInProgressByTheNumberOfTheCore) {
    const Handle listener = Listen();
    const Handle client = NewSocket();
    ASSERT_TRUE(sockets.SetNonBlocking(client, true));
    const auto result = sockets.Connect(client, Loopback(PortOf(listener)));
    ASSERT_FALSE(result);
    EXPECT_EQ(result.Error(), 10036);
    SocketSet write = SetOf({client});
    EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 5000).count, 1);
    EXPECT_EQ(*sockets.GetSocketError(client), 0);
}

TEST_F(SocketsTest, InterruptedConnectIsInProgress) {
    const Handle client = NewSocket();
    SystemCalls calls;
    calls.Fail("connect", EINTR);
    EXPECT_EQ(sockets.Connect(client, Loopback(1)).Error(), ErrorInProgress);
    EXPECT_EQ(calls.Count("connect"), 1u);
}

TEST_F(SocketsTest, OtherNumbersOfConnectStayTheSystemsOwn) {
    const Handle client = NewSocket();
    for (const auto& [error, expected] : std::map<int, int>{{EAGAIN, 10035},
                                                            {EINPROGRESS, 10036},
                                                            {ECONNREFUSED, ECONNREFUSED},
                                                            {ENETUNREACH, ENETUNREACH},
                                                            {ETIMEDOUT, ETIMEDOUT}}) {
        SystemCalls calls;
        calls.Fail("connect", error);
        EXPECT_EQ(sockets.Connect(client, Loopback(1)).Error(), expected);
    }
}

TEST_F(SocketsTest, RefusedConnectShowsInWriteSetAndItsErrorIsReadOnce) {
    Handle listener = Listen();
    const std::uint16_t port = PortOf(listener);
    listener.Close();
    const Handle client = NewSocket();
    ASSERT_TRUE(sockets.SetNonBlocking(client, true));
    EXPECT_EQ(sockets.Connect(client, Loopback(port)).Error(), ErrorInProgress);
    SocketSet write = SetOf({client});
    SocketSet except = SetOf({client});
    EXPECT_EQ(sockets.Select(nullptr, &write, &except, 5000).count, 1);
    EXPECT_THAT(Members(write), ElementsAre(SocketHandle(client)));
    EXPECT_EQ(except.Count(), 0u);
    EXPECT_EQ(*sockets.GetSocketError(client), ECONNREFUSED);
    EXPECT_EQ(*sockets.GetSocketError(client), 0);
}

// Waiting.

TEST_F(SocketsTest, SelectLeavesOnlyReadyHandlesInEachSet) {
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

TEST_F(SocketsTest, SelectWithNothingReadyTimesOutWithEmptySets) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    const SelectResult result = sockets.Select(&read, nullptr, &except, 0);
    EXPECT_EQ(result.count, 0);
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(read.Count(), 0u);
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsTest, SelectWithoutSetsJustWaits) {
    const SelectResult result = sockets.Select(nullptr, nullptr, nullptr, 1);
    EXPECT_EQ(result.count, 0);
    EXPECT_EQ(result.error, 0);
}

TEST_F(SocketsTest, HangUpShowsInReadSetAndNeverInExceptionSet) {
    Pair pair = Connected();
    ASSERT_EQ(sockets.Send(pair.server, "last", 4).count, 4);
    pair.server.Close();
    SocketSet read = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(&read, nullptr, &except, 5000).count, 1);
    EXPECT_TRUE(read.Contains(pair.client));
    EXPECT_EQ(except.Count(), 0u);
    char buffer[8];
    EXPECT_EQ(sockets.Receive(pair.client, buffer, sizeof buffer).count, 4);
    errno = EINTR;  // left behind by some earlier call: the end of the stream is no failure
    const TransferResult end = sockets.Receive(pair.client, buffer, sizeof buffer);
    EXPECT_EQ(end.count, 0);
    EXPECT_EQ(end.error, 0);
}

TEST_F(SocketsTest, ResetShowsInReadAndWriteSets) {
    Pair pair = Connected();
    const linger now{1, 0};
    setsockopt(static_cast<int>(SocketHandle(pair.server)), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    pair.server.Close();
    SocketSet read = SetOf({pair.client});
    SocketSet write = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(&read, &write, &except, 5000).count, 2);
    EXPECT_TRUE(read.Contains(pair.client));
    EXPECT_TRUE(write.Contains(pair.client));
    EXPECT_EQ(except.Count(), 0u);
    char byte;
    const TransferResult received = sockets.Receive(pair.client, &byte, 1);
    EXPECT_EQ(received.count, -1);
    EXPECT_EQ(received.error, ECONNRESET);
}

TEST_F(SocketsTest, UrgentDataShowsInExceptionSet) {
    const Pair pair = Connected();
    ASSERT_EQ(send(static_cast<int>(SocketHandle(pair.server)), "!", 1, MSG_OOB), 1);
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(nullptr, nullptr, &except, 5000).count, 1);
    EXPECT_TRUE(except.Contains(pair.client));
}

TEST_F(SocketsTest, HangUpThatNobodyAskedAboutIsNotCountedAndDoesNotSpin) {
    Pair pair = Connected();
    pair.server.Close();
    shutdown(static_cast<int>(SocketHandle(pair.client)), SHUT_RDWR);
    for (const int milliseconds : {0, 20}) {
        SocketSet except = SetOf({pair.client});
        SystemCalls calls;
        const SelectResult result = sockets.Select(nullptr, nullptr, &except, milliseconds);
        EXPECT_EQ(result.count, 0);
        EXPECT_EQ(result.error, 0);
        EXPECT_EQ(except.Count(), 0u);
        EXPECT_LE(calls.Count("poll"), 3u);
    }
}

TEST_F(SocketsTest, HangUpThatNobodyAskedAboutDoesNotHideAnotherHandle) {
    Pair gone = Connected();
    gone.server.Close();
    shutdown(static_cast<int>(SocketHandle(gone.client)), SHUT_RDWR);
    const Pair alive = Connected();
    SocketSet read = SetOf({alive.client});
    SocketSet except = SetOf({gone.client, alive.client});
    SystemCalls calls;
    // The data comes only after the first look at the descriptors.
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name == "poll" && calls.Count("poll") == 2) {
            ASSERT_EQ(::write(static_cast<int>(SocketHandle(alive.server)), "x", 1), 1);
        }
    });
    EXPECT_EQ(sockets.Select(&read, nullptr, &except, 5000).count, 1);
    EXPECT_TRUE(read.Contains(alive.client));
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsTest, ClosedDescriptorFailsSelectWithBadDescriptor) {
    const Pair pair = Connected();
    Handle closed = NewSocket();
    const SocketHandle number = closed;
    closed.Close();
    SocketSet read = SetOf({number});
    SocketSet write = SetOf({pair.client});
    SelectResult result = sockets.Select(&read, &write, nullptr, 5000);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, EBADF);
    SocketSet except = SetOf({number});
    result = sockets.Select(nullptr, nullptr, &except, 5000);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, EBADF);
}

TEST_F(SocketsTest, InvalidHandleFailsSelectWithBadDescriptor) {
    SocketSet read = SetOf({InvalidSocket});
    const SelectResult result = sockets.Select(&read, nullptr, nullptr, 0);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, EBADF);
}

TEST_F(SocketsTest, FailureOfTheWaitItselfIsReported) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.Fail("poll", ENOMEM);
    const SelectResult result = sockets.Select(&read, nullptr, nullptr, 5000);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, ENOMEM);
}

TEST_F(SocketsTest, DescriptorAboveTheClassicLimitIsSafe) {
    rlimit old{};
    getrlimit(RLIMIT_NOFILE, &old);
    rlimit raised = old;
    raised.rlim_cur = std::min<rlim_t>(old.rlim_max, 4096);
    ASSERT_GT(raised.rlim_cur, 2000u);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    Pair pair = Connected();
    const Handle high(dup2(static_cast<int>(SocketHandle(pair.client)), 1999));
    ASSERT_EQ(SocketHandle(high), 1999);
    ASSERT_EQ(sockets.Send(pair.server, "x", 1).count, 1);
    SocketSet read = SetOf({high});
    SocketSet write = SetOf({high});
    EXPECT_EQ(sockets.Select(&read, &write, nullptr, 5000).count, 2);
    EXPECT_TRUE(read.Contains(1999));
    EXPECT_TRUE(write.Contains(1999));
    setrlimit(RLIMIT_NOFILE, &old);
}

TEST_F(SocketsTest, AllSixtyFourMembersOfThreeSetsAreLookedAt) {
    const Pair pair = Connected();
    SocketSet read;
    SocketSet write;
    SocketSet except;
    std::vector<Handle> copies;
    for (std::size_t i = 0; i < SocketSet::Capacity; ++i) {
        copies.emplace_back(dup(static_cast<int>(SocketHandle(pair.client))));
        read.Add(copies.back());
        write.Add(copies.back());
        except.Add(copies.back());
    }
    ASSERT_EQ(sockets.Send(pair.server, "x", 1).count, 1);
    EXPECT_EQ(sockets.Select(&read, &write, &except, 5000).count, 128);
    EXPECT_EQ(read.Count(), 64u);
    EXPECT_EQ(write.Count(), 64u);
    EXPECT_TRUE(read.Contains(copies.back()));
}

TEST_F(SocketsTest, WaitIsOneSystemCall) {
    const Pair pair = Connected();
    SocketSet write = SetOf({pair.client});
    SystemCalls calls;
    EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 1000).count, 1);
    EXPECT_THAT(calls.Names(), ElementsAre("poll"));
    EXPECT_EQ(calls.Calls().front().argument, 1000);
}

TEST_F(SocketsTest, SignalResumesTheWaitWithTheTimeThatIsLeft) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.Fail("poll", EINTR, 2);
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name != "poll") return;
        if (calls.Count("poll") <= 2) {
            ::poll(nullptr, 0, 15);  // time passes before the signal comes
        } else {
            ASSERT_EQ(::write(static_cast<int>(SocketHandle(pair.server)), "x", 1), 1);
        }
    });
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 5000).count, 1);
    ASSERT_EQ(calls.Count("poll"), 3u);
    EXPECT_EQ(calls.Calls()[0].argument, 5000);
    EXPECT_LE(calls.Calls()[1].argument, 4986);
    EXPECT_LE(calls.Calls()[2].argument, 4971);
    EXPECT_GT(calls.Calls()[2].argument, 0);
    EXPECT_TRUE(read.Contains(pair.client));
}

TEST_F(SocketsTest, SignalsForEverDoNotExtendTheWait) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.Fail("poll", EINTR, std::numeric_limits<int>::max());
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.argument == 0) calls.Fail("poll", EINTR, 0);  // the last look is not interrupted
        ::poll(nullptr, 0, 5);
    });
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 20).count, 0);
    EXPECT_EQ(calls.Calls().back().argument, 0);
    EXPECT_LE(calls.Count("poll"), 6u);
}

TEST_F(SocketsTest, SignalDuringLookWithoutWaitLooksAgain) {
    const Pair pair = Connected();
    SocketSet write = SetOf({pair.client});
    SystemCalls calls;
    calls.Fail("poll", EINTR);
    EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 0).count, 1);
    EXPECT_EQ(calls.Count("poll"), 2u);
}

TEST_F(SocketsTest, TimeOutIsSixtyFourBitsWideAndNeverNegative) {
    const Pair pair = Connected();
    const std::vector<std::pair<std::int64_t, int>> cases{
        {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<int>::max()},
        {4'000'000'000'000, std::numeric_limits<int>::max()},
        {0x1'0000'0000, std::numeric_limits<int>::max()},
        {std::numeric_limits<int>::max(), std::numeric_limits<int>::max()},
        {1, 1},
        {0, 0},
        {-1, 0},
        {std::numeric_limits<std::int64_t>::min(), 0}};
    for (const auto& [asked, given] : cases) {
        SocketSet write = SetOf({pair.client});
        SystemCalls calls;
        EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, asked).count, 1) << asked;
        EXPECT_EQ(calls.Calls().front().argument, given) << asked;
    }
}

TEST_F(SocketsTest, WaitOfMoreThanTwentyFourDaysGoesOnBehindTheTimeThatOneCallCanWait) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.ExpireWaits();
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name == "poll" && calls.Count("poll") == 3) {
            ASSERT_EQ(::write(static_cast<int>(SocketHandle(pair.server)), "x", 1), 1);
        }
    });
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 4'000'000'000'000).count, 1);
    EXPECT_TRUE(read.Contains(pair.client));
    EXPECT_THAT(calls.Names(), ElementsAre("poll", "poll", "poll"));
    EXPECT_EQ(calls.Calls().back().argument, std::numeric_limits<int>::max());
}

TEST_F(SocketsTest, WaitThatOneCallCanWaitEndsWithThatCall) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.ExpireWaits();
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, std::numeric_limits<int>::max()).count, 0);
    EXPECT_EQ(calls.Count("poll"), 1u);
    EXPECT_EQ(read.Count(), 0u);
}

// Transfers.

TEST_F(SocketsTest, TransfersNeverBlockOnBlockingSocket) {
    const Pair pair = Connected();
    char buffer[16];
    const TransferResult received = sockets.Receive(pair.client, buffer, sizeof buffer);
    EXPECT_EQ(received.count, -1);
    EXPECT_EQ(received.error, 10035);

    const std::string large(32 << 20, 'x');
    const TransferResult sent =
        sockets.Send(pair.client, large.data(), static_cast<std::uint32_t>(large.size()));
    EXPECT_GT(sent.count, 0);
    EXPECT_LT(sent.count, static_cast<std::int32_t>(large.size()));
    TransferResult more = sent;
    while (more.count > 0)
        more = sockets.Send(pair.client, large.data(), static_cast<std::uint32_t>(large.size()));
    EXPECT_EQ(more.count, -1);
    EXPECT_EQ(more.error, 10035);
}

TEST_F(SocketsTest, TransferMovesExactlyWhatFits) {
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

TEST_F(SocketsTest, OnlyBytesThatMoreFollowMayBeHeldBack) {
    const Pair pair = Connected();
    SystemCalls calls;
    EXPECT_EQ(sockets.Send(pair.client, "head", 4, true).count, 4);
    EXPECT_EQ(sockets.Send(pair.client, "body", 4).count, 4);
    ASSERT_EQ(calls.Count("send"), 2u);
    EXPECT_EQ(calls.Calls()[0].argument, MSG_DONTWAIT | MSG_NOSIGNAL | MSG_MORE);
    EXPECT_EQ(calls.Calls()[1].argument, MSG_DONTWAIT | MSG_NOSIGNAL);
    std::string buffer(8, '.');
    EXPECT_EQ(recv(static_cast<int>(SocketHandle(pair.server)), buffer.data(), 8, MSG_WAITALL), 8);
    EXPECT_EQ(buffer, "headbody");
}

TEST_F(SocketsTest, SendToClosedPeerFailsWithoutSignal) {
    Pair pair = Connected();
    pair.server.Close();
    TransferResult sent;
    while ((sent = sockets.Send(pair.client, "x", 1)).count == 1) {
        SocketSet read = SetOf({pair.client});
        sockets.Select(&read, nullptr, nullptr, 5000);
    }
    EXPECT_EQ(sent.count, -1);
    EXPECT_TRUE(sent.error == EPIPE || sent.error == ECONNRESET) << sent.error;
    EXPECT_EQ(sockets.Send(pair.client, "x", 1).error, EPIPE);
}

TEST_F(SocketsTest, InterruptedTransfersAreRepeated) {
    const Pair pair = Connected();
    char byte = 'x';
    {
        SystemCalls calls;
        calls.Fail("send", EINTR, 2);
        EXPECT_EQ(sockets.Send(pair.client, &byte, 1).count, 1);
        EXPECT_EQ(calls.Count("send"), 3u);
    }
    SocketSet read = SetOf({pair.server});
    ASSERT_EQ(sockets.Select(&read, nullptr, nullptr, 5000).count, 1);
    SystemCalls calls;
    calls.Fail("recv", EINTR, 2);
    EXPECT_EQ(sockets.Receive(pair.server, &byte, 1).count, 1);
    EXPECT_EQ(calls.Count("recv"), 3u);
}

TEST_F(SocketsTest, TransferIsOneSystemCall) {
    const Pair pair = Connected();
    SystemCalls calls;
    char byte = 'x';
    EXPECT_EQ(sockets.Send(pair.client, &byte, 1).count, 1);
    EXPECT_EQ(sockets.Receive(pair.client, &byte, 1).error, ErrorWouldBlock);
    EXPECT_THAT(calls.Names(), ElementsAre("send", "recv"));
    EXPECT_EQ(calls.Calls()[0].argument, MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(calls.Calls()[1].argument, MSG_DONTWAIT);
}

// Names.

TEST_F(SocketsTest, NumericAddressesResolveToTheirBytes) {
    const AddressHints hints{0, FamilyUnspecified, SocketTypeStream, ProtocolTcp};
    const auto four = sockets.GetAddressInfo("127.0.0.1", "8181", hints);
    ASSERT_TRUE(four);
    ASSERT_EQ(four->size(), 1u);
    EXPECT_EQ(four->front().family, AF_INET);
    EXPECT_EQ(four->front().socketType, SOCK_STREAM);
    EXPECT_EQ(four->front().protocol, IPPROTO_TCP);
    EXPECT_EQ(four->front().address.size(), sizeof(sockaddr_in));
    EXPECT_EQ(four->front().canonicalName, std::nullopt);

    const auto six = sockets.GetAddressInfo("::1", "443", hints);
    ASSERT_TRUE(six);
    EXPECT_EQ(six->front().family, AF_INET6);
    EXPECT_EQ(six->front().address.size(), sizeof(sockaddr_in6));
}

TEST_F(SocketsTest, CanonicalNameIsCopiedWhenAskedFor) {
    const auto list = sockets.GetAddressInfo("127.0.0.1", nullptr,
                                             {AI_CANONNAME, FamilyIPv4, SocketTypeStream, ProtocolTcp});
    ASSERT_TRUE(list);
    EXPECT_EQ(list->front().canonicalName, "127.0.0.1");
    EXPECT_EQ(list->front().flags, AI_CANONNAME);
}

TEST_F(SocketsTest, HintsOfTypeAndProtocolLimitTheEntries) {
    const auto byType = sockets.GetAddressInfo("127.0.0.1", nullptr, {0, FamilyIPv4, SOCK_DGRAM, 0});
    ASSERT_TRUE(byType);
    for (const AddressEntry& entry : *byType)
        EXPECT_EQ(entry.socketType, SOCK_DGRAM);
    const auto byProtocol = sockets.GetAddressInfo("127.0.0.1", nullptr, {0, FamilyIPv4, 0, ProtocolTcp});
    ASSERT_TRUE(byProtocol);
    ASSERT_EQ(byProtocol->size(), 1u);
    EXPECT_EQ(byProtocol->front().protocol, IPPROTO_TCP);
}

TEST_F(SocketsTest, NullHostGivesLoopback) {
    const auto list = sockets.GetAddressInfo(nullptr, "80", {0, FamilyIPv4, SocketTypeStream, ProtocolTcp});
    ASSERT_TRUE(list);
    const auto name = sockets.GetNameInfo(list->front(), 46, 6);
    ASSERT_TRUE(name);
    EXPECT_EQ(name->host, "127.0.0.1");
    EXPECT_EQ(name->service, "80");
}

TEST_F(SocketsTest, ResolverFailuresKeepTheResolversNumbers) {
    const AddressHints numeric{AI_NUMERICHOST, FamilyUnspecified, SocketTypeStream, ProtocolTcp};
    EXPECT_EQ(sockets.GetAddressInfo("no-number", "80", numeric).Error(), EAI_NONAME);
    EXPECT_EQ(sockets.GetAddressInfo(nullptr, nullptr, numeric).Error(), EAI_NONAME);
    EXPECT_EQ(sockets.GetAddressInfo("127.0.0.1", "80", {0, 9999, SocketTypeStream, ProtocolTcp}).Error(),
              EAI_FAMILY);
}

TEST_F(SocketsTest, NameIsNumericAndMustFitWithItsTerminator) {
    const AddressEntry address = Loopback(8181);
    const auto name = sockets.GetNameInfo(address, 10, 5);
    ASSERT_TRUE(name);
    EXPECT_EQ(name->host, "127.0.0.1");
    EXPECT_EQ(name->service, "8181");
    EXPECT_EQ(sockets.GetNameInfo(address, 9, 5).Error(), EAI_OVERFLOW);
    EXPECT_EQ(sockets.GetNameInfo(address, 10, 4).Error(), EAI_OVERFLOW);
}

TEST_F(SocketsTest, ConstantsAreTheSystemsOwn) {
    EXPECT_EQ(FamilyUnspecified, AF_UNSPEC);
    EXPECT_EQ(FamilyIPv4, AF_INET);
    EXPECT_EQ(FamilyIPv6, AF_INET6);
    EXPECT_EQ(SocketTypeStream, SOCK_STREAM);
    EXPECT_EQ(ProtocolTcp, IPPROTO_TCP);
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
