// The waiting for many sockets at once, and the sets that it is told of them by.

#include "tests/Platform/Linux/SocketsFixture.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;

class SocketsSelectTest : public SocketsTest {};

TEST_F(SocketsSelectTest, HangUpShowsInReadSetAndNeverInExceptionSet) {
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

TEST_F(SocketsSelectTest, ResetShowsInReadAndWriteSets) {
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

TEST_F(SocketsSelectTest, AHangUpOrAnErrorAloneMakesAHandleReadyInEachSetThatItIsIn) {
    // A pipe reports the two with nothing beside them: its reader a hang-up, its writer, while full, an
    // error.
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const int reader = pipeEnds[0];
    close(pipeEnds[1]);
    ASSERT_EQ(pipe(pipeEnds), 0);
    const int writer = pipeEnds[1];
    ASSERT_EQ(fcntl(writer, F_SETFL, O_NONBLOCK), 0);
    const std::string page(4096, 'x');
    while (write(writer, page.data(), page.size()) > 0) {
    }
    close(pipeEnds[0]);
    const std::pair<int, short> cases[] = {{reader, POLLHUP}, {writer, POLLERR}};
    for (const auto& [descriptor, event] : cases) {
        pollfd entry{descriptor, POLLIN | POLLOUT, 0};
        ASSERT_EQ(poll(&entry, 1, 0), 1);
        ASSERT_EQ(entry.revents, event);
        SocketSet read = SetOf({descriptor});
        EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 0).count, 1) << event;
        EXPECT_TRUE(read.Contains(descriptor)) << event;
        SocketSet write = SetOf({descriptor});
        EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 0).count, 1) << event;
        EXPECT_TRUE(write.Contains(descriptor)) << event;
        close(descriptor);
    }
}

TEST_F(SocketsSelectTest, UrgentDataShowsInExceptionSet) {
    const Pair pair = Connected();
    ASSERT_EQ(send(static_cast<int>(SocketHandle(pair.server)), "!", 1, MSG_OOB), 1);
    SocketSet except = SetOf({pair.client});
    EXPECT_EQ(sockets.Select(nullptr, nullptr, &except, 5000).count, 1);
    EXPECT_TRUE(except.Contains(pair.client));
}

TEST_F(SocketsSelectTest, HangUpThatNobodyAskedAboutIsNotCountedAndDoesNotSpin) {
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

TEST_F(SocketsSelectTest, HangUpThatNobodyAskedAboutDoesNotHideAnotherHandle) {
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

TEST_F(SocketsSelectTest, ClosedDescriptorFailsSelectWithBadDescriptor) {
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

TEST_F(SocketsSelectTest, InvalidHandleFailsSelectWithBadDescriptor) {
    SocketSet read = SetOf({InvalidSocket});
    const SelectResult result = sockets.Select(&read, nullptr, nullptr, 0);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, EBADF);
}

TEST_F(SocketsSelectTest, FailureOfTheWaitItselfIsReported) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.Fail("poll", ENOMEM);
    const SelectResult result = sockets.Select(&read, nullptr, nullptr, 5000);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, ENOMEM);
}

TEST_F(SocketsSelectTest, DescriptorAboveTheClassicLimitIsSafe) {
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

TEST_F(SocketsSelectTest, AllSixtyFourMembersOfThreeSetsAreLookedAt) {
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

TEST_F(SocketsSelectTest, WaitForBytesIsOneSystemCall) {
    const Pair pair = Connected();
    ASSERT_EQ(sockets.Send(pair.server, "x", 1).count, 1);
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 1000).count, 1);
    EXPECT_THAT(calls.Names(), ElementsAre("poll"));
    EXPECT_EQ(calls.Calls().front().argument, 1000);
}

TEST_F(SocketsSelectTest, RoomForAWriteIsFoundByOneLookThatNeedNotWait) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SocketSet write = SetOf({pair.client});
    SystemCalls calls;
    EXPECT_EQ(sockets.Select(&read, &write, nullptr, 1000).count, 1);
    EXPECT_EQ(read.Count(), 0u);
    EXPECT_TRUE(write.Contains(pair.client));
    EXPECT_THAT(calls.Names(), ElementsAre("poll"));
    EXPECT_EQ(calls.Calls().front().argument, 0);
}

TEST_F(SocketsSelectTest, LookInVainOrThatFailsIsFollowedByTheWholeWait) {
    const Pair pair = Connected();
    const std::string page(4096, 0);
    while (sockets.Send(pair.client, page.data(), 4096).count > 0) {
    }
    for (const int failures : {0, 1}) {
        SocketSet write = SetOf({pair.client});
        SystemCalls calls;
        calls.Fail("poll", EINTR, failures);
        calls.ExpireWaits();
        EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 1000).count, 0);
        ASSERT_THAT(calls.Names(), ElementsAre("poll", "poll"));
        EXPECT_EQ(calls.Calls()[0].argument, 0);
        EXPECT_EQ(calls.Calls()[1].argument, 1000);
    }
}

/// A socket of this thread that has just received all that it had asked for, with more behind it.
class SocketsSelectFlowingTest : public SocketsSelectTest {
protected:
    void SetUp() override {
        ASSERT_EQ(sockets.Send(pair.server, "abc", 3).count, 3);
        ASSERT_TRUE(IsReadable(pair.client));
        ASSERT_EQ(sockets.Receive(pair.client, buffer, 1).count, 1);
    }

    bool IsReadable(SocketHandle socket) {
        SocketSet read = SetOf({socket});
        return sockets.Select(&read, nullptr, nullptr, 5000).count == 1;
    }

    Pair pair = Connected();
    char buffer[3];
};

TEST_F(SocketsSelectFlowingTest, IsCalledReadyUnasked) {
    SocketSet read = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    SocketSet none;
    SystemCalls calls;
    const SelectResult result = sockets.Select(&read, &none, &except, 1000);
    EXPECT_EQ(result.count, 1);
    EXPECT_EQ(result.error, 0);
    EXPECT_THAT(calls.Names(), ElementsAre());
    EXPECT_TRUE(read.Contains(pair.client));
    EXPECT_EQ(except.Count(), 0u);
}

TEST_F(SocketsSelectFlowingTest, IsAskedForWithoutAReceiveBetween) {
    ASSERT_TRUE(IsReadable(pair.client));
    SystemCalls calls;
    EXPECT_TRUE(IsReadable(pair.client));
    EXPECT_THAT(calls.Names(), ElementsAre("poll"));
}

TEST_F(SocketsSelectFlowingTest, IsAskedForBehindAReceiveThatGotLess) {
    ASSERT_EQ(sockets.Receive(pair.client, buffer, 3).count, 2);
    ASSERT_EQ(sockets.Send(pair.server, "d", 1).count, 1);
    SystemCalls calls;
    EXPECT_TRUE(IsReadable(pair.client));
    EXPECT_THAT(calls.Names(), ElementsAre("poll"));
}

TEST_F(SocketsSelectFlowingTest, IsAskedForByALookThatDoesNotWait) {
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, 0).count, 1);
    EXPECT_THAT(calls.Names(), ElementsAre("poll"));
}

TEST_F(SocketsSelectFlowingTest, IsAskedForTogetherWithAnythingElse) {
    const Pair other = Connected();
    ASSERT_EQ(sockets.Send(other.server, "d", 1).count, 1);
    const SocketSet none{};
    const SocketSet self = SetOf({pair.client});
    const SocketSet its = SetOf({other.client});
    const SocketSet both = SetOf({pair.client, other.client});
    struct Case {
        SocketSet read, write, except;
        int ready;
    };
    for (Case asked : {Case{both, none, none, 2}, Case{its, none, none, 1}, Case{self, self, self, 2},
                       Case{self, its, none, 2}, Case{self, none, its, 1}, Case{self, none, both, 1},
                       Case{none, self, none, 1}, Case{none, none, self, 0}}) {
        SystemCalls calls;
        calls.ExpireWaits();
        EXPECT_EQ(sockets.Select(&asked.read, &asked.write, &asked.except, 5000).count, asked.ready);
        EXPECT_GE(calls.Count("poll"), 1u);
    }
}

TEST_F(SocketsSelectFlowingTest, IsAskedForByEveryOtherThread) {
    std::thread([&] {
        SystemCalls calls;
        EXPECT_TRUE(IsReadable(pair.client));
        EXPECT_THAT(calls.Names(), ElementsAre("poll"));
    }).join();
}

TEST_F(SocketsSelectFlowingTest, IsForgottenWhenItIsClosed) {
    const SocketHandle number = dup(static_cast<int>(SocketHandle(pair.client)));
    ASSERT_EQ(sockets.Receive(number, buffer, 1).count, 1);
    ASSERT_TRUE(sockets.Close(number));
    SocketSet read = SetOf({number});
    const SelectResult result = sockets.Select(&read, nullptr, nullptr, 1000);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, EBADF);
}

TEST_F(SocketsSelectFlowingTest, ReadinessThatIsNoneEndsInATransferOfNothingAndAWait) {
    ASSERT_EQ(sockets.Receive(pair.client, buffer, 2).count, 2);  // all that there is
    SystemCalls calls;
    ASSERT_TRUE(IsReadable(pair.client));
    const TransferResult nothing = sockets.Receive(pair.client, buffer, 3);
    EXPECT_EQ(nothing.count, -1);
    EXPECT_EQ(nothing.error, ErrorWouldBlock);
    calls.ExpireWaits();
    EXPECT_FALSE(IsReadable(pair.client));
    EXPECT_THAT(calls.Names(), ElementsAre("recv", "poll"));
}

TEST_F(SocketsSelectFlowingTest, UrgentDataAheadOfWhatFlowsIsStillFound) {
    ASSERT_EQ(send(static_cast<int>(SocketHandle(pair.server)), "!", 1, MSG_OOB), 1);
    SocketSet urgent = SetOf({pair.client});
    ASSERT_EQ(sockets.Select(nullptr, nullptr, &urgent, 5000).count, 1);
    ASSERT_TRUE(IsReadable(pair.client));
    ASSERT_EQ(sockets.Receive(pair.client, buffer, 3).count, 2) << "it ends ahead of the urgent byte";
    SocketSet read = SetOf({pair.client});
    SocketSet except = SetOf({pair.client});
    EXPECT_GE(sockets.Select(&read, nullptr, &except, 5000).count, 1);
    EXPECT_TRUE(except.Contains(pair.client));
}

TEST_F(SocketsSelectTest, ClosedDescriptorIsFoundByTheLookToo) {
    Handle closed = NewSocket();
    SocketSet write = SetOf({closed});
    closed.Close();
    const SelectResult result = sockets.Select(nullptr, &write, nullptr, 1000);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.error, EBADF);
}

TEST_F(SocketsSelectTest, SignalResumesTheWaitWithTheTimeThatIsLeft) {
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

TEST_F(SocketsSelectTest, SignalsForEverDoNotExtendTheWait) {
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

TEST_F(SocketsSelectTest, SignalDuringLookWithoutWaitLooksAgain) {
    const Pair pair = Connected();
    SocketSet write = SetOf({pair.client});
    SystemCalls calls;
    calls.Fail("poll", EINTR);
    EXPECT_EQ(sockets.Select(nullptr, &write, nullptr, 0).count, 1);
    EXPECT_EQ(calls.Count("poll"), 2u);
}

TEST_F(SocketsSelectTest, TimeOutIsSixtyFourBitsWideAndNeverNegative) {
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
    ASSERT_EQ(sockets.Send(pair.server, "x", 1).count, 1);
    for (const auto& [asked, given] : cases) {
        SocketSet read = SetOf({pair.client});
        SystemCalls calls;
        EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, asked).count, 1) << asked;
        EXPECT_EQ(calls.Calls().front().argument, given) << asked;
    }
}

TEST_F(SocketsSelectTest, WaitOfMoreThanTwentyFourDaysGoesOnBehindTheTimeThatOneCallCanWait) {
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

TEST_F(SocketsSelectTest, WaitThatOneCallCanWaitEndsWithThatCall) {
    const Pair pair = Connected();
    SocketSet read = SetOf({pair.client});
    SystemCalls calls;
    calls.ExpireWaits();
    EXPECT_EQ(sockets.Select(&read, nullptr, nullptr, std::numeric_limits<int>::max()).count, 0);
    EXPECT_EQ(calls.Count("poll"), 1u);
    EXPECT_EQ(read.Count(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
